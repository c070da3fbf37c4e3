// SPDX-License-Identifier: Apache-2.0

#include "control/ListeningSocket.h"

#include "base/Error.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

bool SetFlags(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    return fd >= 0 && fcntl(fd, F_SETFD, FD_CLOEXEC) == 0 &&
           fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

int NewSocket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (SetFlags(fd))
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

// True when no process listens on the socket: a connection is refused then.
bool IsDeserted(const sockaddr_un& address)
{
    const int fd = NewSocket();
    const bool refused =
        connect(fd, reinterpret_cast<const sockaddr*>(&address),
                sizeof address) != 0 &&
        errno == ECONNREFUSED;
    close(fd);
    return refused;
}

bool MakeRoom(const sockaddr_un& address, std::string& reason)
{
    struct stat info = {};
    if (lstat(address.sun_path, &info) != 0)
        return true;
    if (!S_ISSOCK(info.st_mode))
        reason = "something else is in its place";
    else if (!IsDeserted(address))
        reason = "another process listens there";
    else if (unlink(address.sun_path) != 0)
        reason = KzaCore::SystemErrorText(errno);
    return reason.empty();
}

} // namespace

int ListenOn(const std::string& path, std::string& reason)
{
    reason.clear();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
    {
        reason = "its path is longer than a socket's may be";
        return -1;
    }
    path.copy(address.sun_path, path.size());
    if (!MakeRoom(address, reason))
        return -1;

    // Before the mode is set, the directory keeps other users out.
    const int fd = NewSocket();
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0 &&
        chmod(address.sun_path, 0600) == 0 && listen(fd, SOMAXCONN) == 0)
        return fd;
    reason = KzaCore::SystemErrorText(errno);
    if (fd >= 0)
        close(fd);
    return -1;
}

int AcceptOn(int listening)
{
    const int fd = accept(listening, nullptr, nullptr);
    if (fd < 0 || SetFlags(fd))
        return fd;
    close(fd);
    return -1;
}
