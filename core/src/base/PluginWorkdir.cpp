// SPDX-License-Identifier: Apache-2.0

#include "base/PluginWorkdir.h"

#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Error.h"

#include <wx/log.h>
#include <wx/string.h>

#include <cerrno>

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
bool HasMode(int directory)
{
    struct stat info = {};
    return fstat(directory, &info) == 0 && (info.st_mode & 07777) == kOwnerOnly;
}

// 0, or errno.
int MakeSecureDirectory(const wxString& parent, const wxString& name)
{
    const CDescriptor work(open(parent.fn_str(), kOpenDirectory));
    if (!work.IsOpen() ||
        (mkdirat(work.Get(), name.fn_str(), kOwnerOnly) != 0 &&
         errno != EEXIST))
        return errno;
    const CDescriptor directory(
        openat(work.Get(), name.fn_str(), kOpenDirectory | O_NOFOLLOW));
    if (!directory.IsOpen() ||
        (!HasMode(directory.Get()) && fchmod(directory.Get(), kOwnerOnly) != 0))
        return errno;
    return 0;
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
    const int reason = MakeSecureDirectory(work, plugin);
    if (reason == 0)
        return true;
    error.Printf("Unable to make the working directory %s (error %d: %s)", path,
                 reason, TextOfBytes(SystemErrorText(reason)));
    return false;
}

} // namespace KzaCore
