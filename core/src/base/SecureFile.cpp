// SPDX-License-Identifier: Apache-2.0

#include "kza_core/SecureFile.h"

#include <wx/debug.h>
#include <wx/log.h>
#include <wx/string.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{

bool SecureFileOrDirectory(const wxString& path, bool reserved)
{
    wxASSERT(!reserved);
    wxUnusedVar(reserved);

    // The rights are changed through the descriptor that was examined, so that
    // no other file can take the name in between. O_NONBLOCK keeps a fifo from
    // blocking the open.
    const int fd =
        open(path.fn_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        wxLogSysError("Unable to secure %s", path);
        return false;
    }
    struct stat info
    {
    };
    const bool done = fstat(fd, &info) == 0 &&
                      fchmod(fd, S_ISDIR(info.st_mode) ? 0700 : 0600) == 0;
    if (!done)
        wxLogSysError("Unable to secure %s", path);
    close(fd);
    return done;
}

} // namespace KzaCore
