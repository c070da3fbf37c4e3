// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Unzip.h"

#include "archive/EntryExtractor.h"
#include "archive/UnzipDestination.h"
#include "archive/UnzipPlan.h"
#include "archive/ZipFile.h"
#include "base/Bytes.h"
#include "base/Error.h"

#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>

namespace KzaCore
{

namespace
{

constexpr mode_t kFileMode = 0600;
constexpr mode_t kPermissions = 0777; // without the set-id bits

// The entry as the framework has it. Made once and filled for each, which
// saves most of its cost.
class CShownEntry
{
public:
    const wxZipEntry* Show(const SZipEntry& entry)
    {
        m_entry.SetSystemMadeBy(entry.system);
        m_entry.SetExternalAttributes(entry.attributes);
        m_entry.SetName(TextOfBytes(entry.name), wxPATH_UNIX);
        m_entry.SetSize(static_cast<wxFileOffset>(entry.size));
        m_entry.SetMethod(entry.method);
        // Many entries have the same time, and each conversion looks up the
        // time zone on disk.
        if (entry.dosDateTime != m_dosDateTime)
        {
            m_dosDateTime = entry.dosDateTime;
            m_entry.SetDateTime(wxDateTime().SetFromDOS(m_dosDateTime));
        }
        return &m_entry;
    }

private:
    wxZipEntry m_entry;
    std::uint32_t m_dosDateTime = 0;
};

// One call of Unzip().
class CUnzip
{
public:
    CUnzip(UnzipCB callback, void* context)
        : m_callback(callback),
          m_context(context),
          m_extractor(m_archive),
          m_temporary(TemporaryName())
    {
    }

    /// \param shownAs  The destination as the callback is to see it.
    bool Run(const std::string& archive,
             const std::string& destination,
             const wxString& shownAs);

    [[nodiscard]] const std::string& Error() const { return m_error; }

private:
    bool CheckDirectories();
    bool WriteEntries(const wxString& base);
    bool Write(const SZipEntry& entry, const SPlannedEntry& planned);
    bool WriteFile(const SZipEntry& entry,
                   std::uint64_t data,
                   int directory,
                   const char* name);
    bool SetDirectoryModes();
    bool SetDirectoryMode(const SZipEntry& entry, std::string& error);
    bool FailEntry(const SZipEntry& entry);

    UnzipCB m_callback;
    void* m_context;
    CZipFile m_archive;
    std::size_t m_maxLength = 0; // of a path under the destination
    CUnzipDestination m_destination;
    CEntryExtractor m_extractor;
    std::string m_temporary;
    std::vector<bool> m_isToSetMode; // for the entries up to the last of them
    std::string m_error;
};

// The directory that must be there for an entry.
std::string_view DirectoryOf(const SZipEntry& entry, std::string_view path)
{
    return entry.IsDirectory() ? path : ParentOf(path);
}

bool CUnzip::FailEntry(const SZipEntry& entry)
{
    return Fail(m_error, "entry " + ShowName(entry.name) + ": " + m_error);
}

bool CUnzip::Run(const std::string& archive,
                 const std::string& destination,
                 const wxString& shownAs)
{
    if (!m_archive.Open(archive, m_error) ||
        !m_destination.Open(destination, m_error))
        return false;
    const std::size_t used = m_destination.Path().size() + 2;
    m_maxLength = used < PATH_MAX ? PATH_MAX - used : 0;
    if (!CheckArchive(m_archive, m_maxLength, m_error) || !CheckDirectories())
        return false;
    m_destination.RemoveLeftovers();

    // The modes last: one that forbids writing must not get in the way, and
    // what was written before a failure gets the right ones too.
    const bool isWritten = WriteEntries(shownAs + '/');
    return SetDirectoryModes() && isWritten;
}

bool CUnzip::CheckDirectories()
{
    CZipWalk walk(m_archive);
    std::string last;
    while (const SZipEntry* const entry = walk.Next(m_error))
    {
        std::string_view path;
        if (!PlanPath(entry->name, path, m_error))
            return FailEntry(*entry);
        const std::string_view directory = DirectoryOf(*entry, path);
        if (directory == last)
            continue;
        if (!m_destination.Check(directory, m_error))
            return FailEntry(*entry);
        last = directory;
    }
    return walk.IsWhole();
}

bool CUnzip::WriteEntries(const wxString& base)
{
    CShownEntry shown;
    wxString path;
    SPlannedEntry planned;
    CZipWalk walk(m_archive);
    for (std::size_t i = 0; const SZipEntry* const entry = walk.Next(m_error);
         ++i)
    {
        if (!PlanEntry(m_archive, *entry, m_maxLength, planned, m_error))
            return false;
        // Again: the callback may delete what the path leads to.
        if (!m_destination.Check(DirectoryOf(*entry, planned.path), m_error))
            return FailEntry(*entry);
        path = base;
        path += TextOfBytes(planned.path);
        if (!m_callback(m_context, shown.Show(*entry), &path))
            continue;
        if (!Write(*entry, planned))
            return FailEntry(*entry);
        if (entry->IsDirectory() && entry->UnixMode() != 0 &&
            !planned.path.empty())
        {
            m_isToSetMode.resize(i + 1);
            m_isToSetMode[i] = true;
        }
    }
    return walk.IsWhole();
}

bool CUnzip::Write(const SZipEntry& entry, const SPlannedEntry& planned)
{
    if (entry.IsDirectory())
        return m_destination.Enter(planned.path, m_error) >= 0;
    const std::string_view parent = ParentOf(planned.path);
    const int directory = m_destination.Enter(parent, m_error);
    if (directory < 0)
        return false;
    const std::string name(
        planned.path.substr(parent.empty() ? 0 : parent.size() + 1));
    if (WriteFile(entry, planned.data, directory, name.c_str()))
        return true;
    unlinkat(directory, m_temporary.c_str(), 0);
    return false;
}

bool CUnzip::WriteFile(const SZipEntry& entry,
                       std::uint64_t data,
                       int directory,
                       const char* name)
{
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    CDescriptor file(openat(directory, m_temporary.c_str(), kFlags, kFileMode));
    if (!file.IsOpen())
        return FailBySystem(m_error, "it cannot be made");
    if (!m_extractor.Extract(entry, data, file.Get(), m_error))
        return false;
    const mode_t mode = entry.UnixMode();
    if ((mode != 0 && fchmod(file.Get(), mode & kPermissions) != 0) ||
        !file.Close() ||
        renameat(directory, m_temporary.c_str(), directory, name) != 0)
        return FailBySystem(m_error, "it cannot be put into its place");
    return true;
}

bool CUnzip::SetDirectoryModes()
{
    std::string error;
    CZipWalk walk(m_archive);
    for (std::size_t i = 0; i < m_isToSetMode.size(); ++i)
    {
        const SZipEntry* const entry = walk.Next(error);
        if (entry == nullptr)
            break;
        if (m_isToSetMode[i] && !SetDirectoryMode(*entry, error))
            break;
    }
    if (m_error.empty())
        m_error = error;
    return error.empty();
}

bool CUnzip::SetDirectoryMode(const SZipEntry& entry, std::string& error)
{
    const mode_t mode = entry.UnixMode() & kPermissions;
    std::string_view path;
    const int directory = PlanPath(entry.name, path, error)
                              ? m_destination.Enter(path, error)
                              : -1;
    struct stat status = {};
    const bool isSet = directory >= 0 && fstat(directory, &status) == 0 &&
                       ((status.st_mode & kPermissions) == mode ||
                        fchmod(directory, mode) == 0);
    if (!isSet && error.empty())
        FailBySystem(error, "its mode cannot be set");
    if (!isSet)
        error = "entry " + ShowName(entry.name) + ": " + error;
    return isSet;
}

std::string BytesOfPath(const wxString& path)
{
    return std::string(path.fn_str());
}

} // namespace

bool Unzip(const wxFileName& archive,
           const wxFileName& destDir,
           UnzipCB callback,
           void* context)
{
    wxCHECK(callback != nullptr, false);
    const wxString destination = destDir.GetPath(wxPATH_GET_VOLUME);
    CUnzip unzip(callback, context);
    if (unzip.Run(BytesOfPath(archive.GetFullPath()), BytesOfPath(destination),
                  destination))
        return true;
    wxLogWarning("Unable to unpack '%s': %s", archive.GetFullPath(),
                 TextOfBytes(unzip.Error()));
    return false;
}

} // namespace KzaCore
