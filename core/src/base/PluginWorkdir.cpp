// SPDX-License-Identifier: Apache-2.0

#include "base/PluginWorkdir.h"

#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Error.h"

#include <wx/log.h>
#include <wx/string.h>

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace KzaCore
{

namespace
{

constexpr mode_t kOwnerOnly = 0700;
constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// The mode is read and set through the open descriptor, so that the directory
// cannot be exchanged for another one in between.
//
// \param status  Out: of the directory.
bool CloseToOthers(int directory, struct stat& status)
{
    return fstat(directory, &status) == 0 &&
           ((status.st_mode & 07777) == kOwnerOnly ||
            (fchmod(directory, kOwnerOnly) == 0 &&
             fstat(directory, &status) == 0));
}

// 0, or errno.
int MakeSecureDirectory(const wxString& parent,
                        const wxString& name,
                        struct stat& status)
{
    const CDescriptor work(open(parent.fn_str(), kOpenDirectory));
    if (!work.IsOpen() ||
        (mkdirat(work.Get(), name.fn_str(), kOwnerOnly) != 0 &&
         errno != EEXIST))
        return errno;
    const CDescriptor directory(
        openat(work.Get(), name.fn_str(), kOpenDirectory | O_NOFOLLOW));
    return directory.IsOpen() && CloseToOthers(directory.Get(), status) ? 0
                                                                        : errno;
}

// The owner is looked at behind the mode: another user's directory is that
// user's, whatever its mode.
bool IsOwnerRight(const wxString& path,
                  const struct stat& status,
                  EOwnerRule rule,
                  wxString& error)
{
    if (!CanOthersChange(status))
        return true;
    const std::string text = ChangeableText(BytesOfText(path), status);
    error = TextOfBytes(text);
    return Tolerate({text}, rule);
}

} // namespace

bool IsPluginName(const wxString& plugin)
{
    return !plugin.empty() && plugin != "." && plugin != ".." &&
           plugin.find(wxT('/')) == wxString::npos &&
           plugin.find(wxT('\0')) == wxString::npos;
}

bool MakePluginWorkdir(const wxString& work,
                       const wxString& plugin,
                       EOwnerRule rule,
                       wxString& path,
                       wxString& error)
{
    path.clear();
    if (!IsPluginName(plugin))
    {
        error.Printf("No working directory for a plugin of the name \"%s\"",
                     plugin);
        return false;
    }
    if (work.empty())
    {
        error.Printf("No working directory for plugin \"%s\": the agent has "
                     "none itself",
                     plugin);
        return false;
    }
    path = work;
    if (!path.EndsWith("/"))
        path += '/';
    path += plugin;
    struct stat status = {};
    const int reason = MakeSecureDirectory(work, plugin, status);
    if (reason == 0)
    {
        if (IsOwnerRight(path, status, rule, error))
            return true;
        path.clear();
        return false;
    }
    error.Printf("Unable to make the working directory %s (error %d: %s)", path,
                 reason, TextOfBytes(SystemErrorText(reason)));
    return false;
}

} // namespace KzaCore
