// SPDX-License-Identifier: Apache-2.0
//
// A call of Unzip() goes through these states. The first failure ends it.
//
//   1. Opening. The archive is opened and its signature checked, where the
//      options give keys; then the destination is opened, unless it is missing.
//   2. Checking, in three walks over the archive: each entry by itself; the
//      entries beside each other; the directories of the entries, with the room
//      on their file systems. A failure up to here has changed nothing on disk.
//   3. Preparing. A missing destination is made, and temporary files that
//      processes have left which ended in state 4 are removed.
//   4. Walking. Each entry is read and checked again, since the archive may
//      have changed, and shown to the callback. A chosen file is written under
//      a temporary name and then renamed; until the rename, a failure leaves
//      the old file. Entries that were written before the failure stay.
//   5. Closing. Directories made in this call get their final modes, after a
//      failure too. They cannot get them earlier: a mode that forbids writing
//      would prevent state 4.
//
// With the option `namesOnly`, state 2 checks the names alone, states 3 and 5
// are left out, and state 4 writes nothing.

#include "kza_core/Unzip.h"

#include "archive/EntryExtractor.h"
#include "archive/PackageSignature.h"
#include "archive/UnzipDestination.h"
#include "archive/UnzipPlan.h"
#include "archive/UnzipRoom.h"
#include "archive/ZipWalk.h"
#include "base/Bytes.h"
#include "base/Error.h"

#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KzaCore
{

namespace
{

constexpr mode_t kFileMode = 0600;

// The permission bits that an archive may give.
constexpr mode_t kPermissions = 0755;

// The entry in the framework's class, for the callback. One object is filled
// for all entries, because making it is most of its cost.
class CShownEntry
{
public:
    const wxZipEntry* Show(const CZipEntry& entry)
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
    explicit CUnzip(const CUnzipOptions& options)
        : m_options(options),
          m_extractor(m_archive),
          m_temporary(TemporaryName())
    {
    }

    /// States 1 and 2.
    bool Check(const std::string& archive, const std::string& destination);

    /// States 3 to 5. Once per object, after a check that answered true.
    ///
    /// \param shownAs  The destination's path for the callback.
    bool Run(UnzipCB callback, void* context, const wxString& shownAs);

    [[nodiscard]] const std::string& Error() const { return m_error; }

    /// Of the archive; known after the check, whatever it answered.
    [[nodiscard]] const TChangeable& Changeable() const { return m_changeable; }
    [[nodiscard]] COpenedFile ReleaseArchive() { return m_archive.Release(); }

private:
    bool OpenArchive(const std::string& path);
    bool CheckDirectories();
    bool Plan(const CZipEntry& entry, CPlannedEntry& planned);
    bool WalkEntries(UnzipCB callback, void* context, const wxString& base);
    bool Write(const CZipEntry& entry,
               const CPlannedEntry& planned,
               bool isNewDirectory);
    bool MakeDirectory(const CZipEntry& entry,
                       std::string_view path,
                       bool isNew);
    bool WriteFile(const CZipEntry& entry,
                   std::uint64_t data,
                   int directory,
                   const char* name);
    bool SetDirectoryModes();
    bool SetDirectoryMode(const CZipEntry& entry, std::string& error);
    bool FailEntry(const CZipEntry& entry);

    const CUnzipOptions& m_options;
    CZipFile m_archive;
    std::size_t m_maxLength = 0; // of a path under the destination
    CUnzipDestination m_destination;
    CEntryExtractor m_extractor;
    std::string m_temporary;

    // For each entry, whether it is a directory that was missing before and
    // whose mode is to be set.
    std::vector<bool> m_isNewDirectory;
    std::size_t m_walked = 0; // entries that the callback was asked for
    TChangeable m_changeable;
    std::string m_error;
};

// The directory that an entry is, or that its file is written into.
std::string_view DirectoryOf(const CZipEntry& entry, std::string_view path)
{
    return entry.IsDirectory() ? path : ParentOf(path);
}

// The bytes that a path may have under a destination.
std::size_t MaxLength(const std::string& destination)
{
    const std::size_t used = destination.size() + 2; // a slash and a NUL
    return used < PATH_MAX ? PATH_MAX - used : 0;
}

bool CUnzip::FailEntry(const CZipEntry& entry)
{
    return Fail(m_error, "entry " + ShowName(entry.name) + ": " + m_error);
}

bool CUnzip::Check(const std::string& archive, const std::string& destination)
{
    if (!OpenArchive(archive) || !m_destination.Open(destination, m_error))
        return false;
    m_maxLength = MaxLength(m_destination.Path());
    return (m_options.namesOnly
                ? CheckNames(m_archive, m_maxLength, m_error)
                : CheckArchive(m_archive, m_maxLength, m_error)) &&
           CheckDirectories();
}

bool CUnzip::OpenArchive(const std::string& path)
{
    COpenedFile file;
    if (!OpenAndJudge(path, file, m_changeable))
        return FailBySystem(m_error, "cannot be opened");
    if (m_options.owners == EOwnerRule::Refuse && !m_changeable.empty())
        return Fail(m_error, m_changeable.front());
    std::unique_ptr<CFileSeal> seal;
    std::string signer;
    if (m_options.keys != nullptr)
    {
        seal = std::make_unique<CFileSeal>();
        if (!CheckSignature(file, m_options.signature, *m_options.keys, *seal,
                            signer, m_error))
            return false;
    }
    return m_archive.Open(std::move(file), std::move(seal), m_error);
}

bool CUnzip::CheckDirectories()
{
    using ELook = CUnzipDestination::ELook;
    m_isNewDirectory.resize(m_archive.Count());
    CUnzipRoom room;
    CZipWalk walk(m_archive);
    std::optional<std::string> last;
    ELook look = ELook::Missing;
    for (std::size_t i = 0; const CZipEntry* const entry = walk.Next(m_error);
         ++i)
    {
        std::string_view path;
        if (!PlanPath(entry->name, path, m_error))
            return FailEntry(*entry);
        const std::string_view directory = DirectoryOf(*entry, path);
        if (last != directory)
        {
            look = m_destination.Look(directory, m_error);
            if (look == ELook::Refused)
                return FailEntry(*entry);
            room.ChooseFileSystem(m_destination.Nearest());
            last = directory;
        }
        room.Add(entry->size);
        m_isNewDirectory[i] = look == ELook::Missing && entry->IsDirectory() &&
                              entry->UnixMode() != 0;
    }
    return walk.IsWhole() && (m_options.namesOnly || room.IsThere(m_error));
}

bool CUnzip::Run(UnzipCB callback, void* context, const wxString& shownAs)
{
    const wxString base = shownAs + '/';
    if (m_options.namesOnly)
        return WalkEntries(callback, context, base);
    if (!m_destination.Make(m_error))
        return false;
    m_maxLength = MaxLength(m_destination.Path());
    m_destination.RemoveLeftovers();
    const bool isWritten = WalkEntries(callback, context, base);
    return SetDirectoryModes() && isWritten;
}

bool CUnzip::Plan(const CZipEntry& entry, CPlannedEntry& planned)
{
    return m_options.namesOnly
               ? PlanName(entry, m_maxLength, planned, m_error)
               : PlanEntry(m_archive, entry, m_maxLength, planned, m_error);
}

bool CUnzip::WalkEntries(UnzipCB callback, void* context, const wxString& base)
{
    CShownEntry shown;
    wxString path;
    CPlannedEntry planned;
    CZipWalk walk(m_archive);
    for (; const CZipEntry* const entry = walk.Next(m_error); ++m_walked)
    {
        if (!Plan(*entry, planned))
            return false;
        // Once more after the check, because a callback before may have deleted
        // or replaced the directory.
        if (m_destination.Look(DirectoryOf(*entry, planned.path), m_error) ==
            CUnzipDestination::ELook::Refused)
            return FailEntry(*entry);
        path = base;
        path += TextOfBytes(planned.path);
        const bool isChosen = callback(context, shown.Show(*entry), &path);
        if (!isChosen || m_options.namesOnly)
            m_isNewDirectory[m_walked] = false;
        else if (!Write(*entry, planned, m_isNewDirectory[m_walked]))
            return FailEntry(*entry);
    }
    return walk.IsWhole();
}

bool CUnzip::Write(const CZipEntry& entry,
                   const CPlannedEntry& planned,
                   bool isNewDirectory)
{
    if (entry.IsDirectory())
        return MakeDirectory(entry, planned.path, isNewDirectory);
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

// A new directory gets its mode at once, with all rights of the owner added, so
// that its files can be written. If the process is killed before the final mode
// is set, the directory is still accessible for others as intended; the next
// call does not set the mode of a directory that exists.
bool CUnzip::MakeDirectory(const CZipEntry& entry,
                           std::string_view path,
                           bool isNew)
{
    const int directory = m_destination.Enter(path, m_error);
    if (directory < 0)
        return false;
    const mode_t mode = (entry.UnixMode() & kPermissions) | S_IRWXU;
    return !isNew || fchmod(directory, mode) == 0 ||
           FailBySystem(m_error, "its mode cannot be set");
}

bool CUnzip::WriteFile(const CZipEntry& entry,
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
    for (std::size_t i = 0; i < m_walked; ++i)
    {
        const CZipEntry* const entry = walk.Next(error);
        if (entry == nullptr)
            break;
        if (m_isNewDirectory[i] && !SetDirectoryMode(*entry, error))
            break;
    }
    if (m_error.empty())
        m_error = error;
    return error.empty();
}

bool CUnzip::SetDirectoryMode(const CZipEntry& entry, std::string& error)
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

bool Check(CUnzip& unzip, const wxFileName& archive, const wxFileName& destDir)
{
    return unzip.Check(BytesOfPath(archive.GetFullPath()),
                       BytesOfPath(destDir.GetPath(wxPATH_GET_VOLUME)));
}

wxString Refusal(const CUnzip& unzip, const wxFileName& archive)
{
    return wxString::Format("Unable to unpack '%s': %s", archive.GetFullPath(),
                            TextOfBytes(unzip.Error()));
}

} // namespace

bool Unzip(const wxFileName& archive,
           const wxFileName& destDir,
           UnzipCB callback,
           void* context,
           const CUnzipOptions& options)
{
    wxCHECK(callback != nullptr, false);
    CUnzip unzip(options);
    const bool isGood = Check(unzip, archive, destDir);
    Tolerate(unzip.Changeable(), options.owners);
    if (!isGood ||
        !unzip.Run(callback, context, destDir.GetPath(wxPATH_GET_VOLUME)))
    {
        wxLogWarning("%s", Refusal(unzip, archive));
        return false;
    }
    if (options.opened != nullptr)
        *options.opened = unzip.ReleaseArchive();
    return true;
}

bool CanUnzip(const wxFileName& archive,
              const wxFileName& destDir,
              const CUnzipOptions& options,
              wxString& error)
{
    CUnzip unzip(options);
    if (Check(unzip, archive, destDir))
        return true;
    error = Refusal(unzip, archive);
    return false;
}

} // namespace KzaCore
