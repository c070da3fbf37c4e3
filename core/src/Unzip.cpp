// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Unzip.h"

#include "Descriptor.h"
#include "ZipArchive.h"

#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace KzaCore
{

namespace
{

bool IsSafe(std::string_view name)
{
    return !name.empty() && name[0] != '/' &&
           name.find('\\') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos &&
           ("/" + std::string(name) + "/").find("/../") == std::string::npos;
}

bool WriteFile(const std::string& path, const std::string& bytes, mode_t mode)
{
    const std::string temp = path + ".new";
    CDescriptor file(
        open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return file.IsOpen() &&
           write(file.Get(), bytes.data(), bytes.size()) ==
               static_cast<ssize_t>(bytes.size()) &&
           fchmod(file.Get(), mode) == 0 && file.Close() &&
           rename(temp.c_str(), path.c_str()) == 0;
}

} // namespace

bool Unzip(const wxFileName& archive,
           const wxFileName& destDir,
           UnzipCB callback,
           void* context)
{
    const wxString package = archive.GetFullPath();
    CZipArchive zip;
    std::string error;
    if (!zip.Open(std::string(package.fn_str()), error))
    {
        wxLogWarning("Unable to unpack '%s': %s", package, error);
        return false;
    }
    for (const SZipEntry& entry : zip.Entries())
        if (!IsSafe(entry.name) || S_ISLNK(entry.UnixMode()))
        {
            wxLogWarning("Unable to unpack '%s': bad entry", package);
            return false;
        }
    const wxString base = destDir.GetPath(wxPATH_GET_VOLUME) + "/";
    for (const SZipEntry& entry : zip.Entries())
    {
        const wxString name =
            wxString::FromUTF8(entry.name.data(), entry.name.size());
        wxZipEntry shown(name);
        shown.SetSize(static_cast<wxFileOffset>(entry.size));
        const wxString path = base + name;
        if (!callback(context, &shown, &path))
            continue;
        wxFileName::Mkdir(path.BeforeLast('/'), 0700, wxPATH_MKDIR_FULL);
        std::string bytes;
        if (entry.IsDirectory())
            continue;
        const mode_t mode = entry.UnixMode() & 0777;
        if (!zip.Read(entry, bytes, error) ||
            !WriteFile(std::string(path.fn_str()), bytes,
                       mode == 0 ? 0600 : mode))
        {
            wxLogWarning("Unable to unpack '%s': %s", package, error);
            return false;
        }
    }
    return true;
}

} // namespace KzaCore
