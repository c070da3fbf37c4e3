// SPDX-License-Identifier: Apache-2.0

#include "control/ListeningSocket.h"
#include "control/PeerUser.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

int Connect(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

TEST(ListeningSocket, TakesConnectionsOfItsOwnUser)
{
    const CTempDir dir;
    const std::string path = dir.File("s");
    std::string reason;
    const int listening = ListenOn(path, reason);
    ASSERT_GE(listening, 0) << reason;
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode, S_IFSOCK | 0600U);
    EXPECT_EQ(fcntl(listening, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(AcceptOn(listening), -1) << "nobody has connected";

    const int there = Connect(path);
    ASSERT_GE(there, 0);
    const int here = AcceptOn(listening);
    ASSERT_GE(here, 0);
    EXPECT_EQ(fcntl(here, F_GETFD), FD_CLOEXEC);
    EXPECT_NE(fcntl(here, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(PeerUser(here).value_or(geteuid()), geteuid());
    for (const int fd : {listening, there, here})
        close(fd);
}

TEST(ListeningSocket, TakesThePlaceOfADesertedSocket)
{
    const CTempDir dir;
    const std::string path = dir.File("s");
    std::string reason;
    close(ListenOn(path, reason));
    EXPECT_EQ(Connect(path), -1);
    const int listening = ListenOn(path, reason);
    ASSERT_GE(listening, 0) << reason;
    close(listening);
}

TEST(ListeningSocket, LeavesWhatIsInItsPlace)
{
    const CTempDir dir;
    std::string reason;

    const std::string file = dir.File("file");
    WriteFile(file, "mine");
    EXPECT_EQ(ListenOn(file, reason), -1);
    EXPECT_EQ(reason, "something else is in its place");
    EXPECT_EQ(ReadFile(file), "mine");

    const std::string link = dir.File("link");
    ASSERT_EQ(symlink("nowhere", link.c_str()), 0);
    EXPECT_EQ(ListenOn(link, reason), -1);
    EXPECT_EQ(reason, "something else is in its place");

    const std::string busy = dir.File("busy");
    const int listening = ListenOn(busy, reason);
    EXPECT_EQ(ListenOn(busy, reason), -1);
    EXPECT_EQ(reason, "another process listens there");
    close(listening);
}

TEST(ListeningSocket, SaysWhyItCannot)
{
    std::string reason;
    EXPECT_EQ(ListenOn("/" + std::string(200, 'x'), reason), -1);
    EXPECT_EQ(reason, "its path is longer than a socket's may be");
    EXPECT_EQ(ListenOn("/nowhere/s", reason), -1);
    EXPECT_EQ(reason, "No such file or directory");
}

} // namespace
