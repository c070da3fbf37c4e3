// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PidFile.h"

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/log.h>
#include <wx/string.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

TEST(PidFile, WriterAndReaderAgree)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    EXPECT_EQ(ReadPidFile(path), 0);
    EXPECT_TRUE(WritePidFile(path));
    EXPECT_EQ(ReadPidFile(path), getpid());
    EXPECT_EQ(ReadFile(path), std::to_string(getpid()) + "\n");
}

TEST(PidFile, ModeIs0644WhateverTheUmask)
{
    const CTempDir dir;
    for (const mode_t mask : {0U, 077U})
    {
        const mode_t before = umask(mask);
        EXPECT_TRUE(WritePidFile(dir.File("a.pid")));
        umask(before);
        struct stat info
        {
        };
        ASSERT_EQ(stat(dir.File("a.pid").c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, 0644U);
    }
}

TEST(PidFile, WhiteSpaceAroundTheNumberIsFine)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    const std::string contents[] = {
        "5",     "5\n",   " 5\n",      "\t5 \r\n",
        "5\n\n", "\n5\n", "\v\f5\v\f", std::string(4000, ' ') + "5\n",
    };
    for (const std::string& content : contents)
    {
        SCOPED_TRACE(testing::PrintToString(content.substr(0, 40)));
        WriteFile(path, content);
        EXPECT_EQ(ReadPidFile(path), 5);
    }
}

TEST(PidFile, ContentThatIsNoPositiveNumberIsAbsent)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    const std::string malformed[] = {
        "",
        "\n",
        " \n",
        "0\n",
        "-5\n",
        "+5\n",
        "- 5\n",
        "5 6\n",
        "5\n6\n",
        "\xc2\xa0"
        "5\n",
        "0x10\n",
        "abc\n",
        "5abc\n",
        "1.5\n",
        "2147483648\n",
        "99999999999999999999999999\n",
        std::string("5\n\0", 3),
        std::string(100000, '1'),
        "5" + std::string(100000, '\n'),
    };
    for (const std::string& content : malformed)
    {
        SCOPED_TRACE(content.substr(0, 40));
        WriteFile(path, content);
        EXPECT_EQ(ReadPidFile(path), 0);
    }
    WriteFile(path, "2147483647\n");
    EXPECT_EQ(ReadPidFile(path), 2147483647);
}

TEST(PidFile, OnlyRegularFilesAreRead)
{
    const CTempDir dir;
    EXPECT_EQ(ReadPidFile(dir.Path()), 0);
    const std::string pipe = dir.File("pipe.pid");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(ReadPidFile(pipe), 0);
    EXPECT_EQ(ReadPidFile(dir.File("none/a.pid")), 0);
}

TEST(PidFile, SymbolicLinkIsNeverFollowed)
{
    const CTempDir dir;
    const std::string elsewhere = dir.File("elsewhere");
    const std::string path = dir.File("a.pid");
    WriteFile(elsewhere, "5\n");
    fs::create_symlink(elsewhere, path);

    EXPECT_EQ(ReadPidFile(path), 0);
    EXPECT_TRUE(WritePidFile(path));
    EXPECT_EQ(ReadFile(elsewhere), "5\n");
    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(ReadPidFile(path), getpid());
}

TEST(PidFile, FailureLeavesNothingBehind)
{
    const wxLogNull quiet;
    const CTempDir dir;
    EXPECT_FALSE(WritePidFile(dir.File("none/a.pid")));

    const std::string path = dir.File("a.pid");
    fs::create_directories(path + "/full");
    EXPECT_FALSE(WritePidFile(path));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), {}), 1);
}

TEST(PidFile, ReaderNeverSeesHalf)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    ASSERT_TRUE(WritePidFile(path));
    std::atomic<bool> done{false};
    std::thread writer(
        [&]
        {
            for (int i = 0; i < 2000; ++i)
                WritePidFile(path);
            done = true;
        });
    while (!done)
        ASSERT_EQ(ReadPidFile(path), getpid());
    writer.join();
}

// Runs a step in a child, which ends with what it returns.
pid_t InChild(const std::function<int()>& step)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(step());
    return child;
}

int StatusOf(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST(PidFileClaim, LockFileExistsOnlyMeanwhile)
{
    const CTempDir dir;
    {
        CPidFileClaim claim(dir.File("a.pid"));
        EXPECT_FALSE(claim.IsTaken());
        EXPECT_TRUE(FileExists(dir.File("a.pid.lock")));
        claim.Release();
        EXPECT_FALSE(FileExists(dir.File("a.pid.lock")));
        claim.Release();
    }
    const CPidFileClaim again(dir.File("a.pid"));
    EXPECT_FALSE(again.IsTaken());
}

TEST(PidFileClaim, OneProcessAtATime)
{
    const CTempDir dir;
    const std::string inside = dir.File("inside");
    std::vector<pid_t> children;
    children.reserve(8);
    for (int i = 0; i < 8; ++i)
        children.push_back(InChild(
            [&]
            {
                for (int turn = 0; turn < 20; ++turn)
                {
                    const CPidFileClaim claim(dir.File("a.pid"));
                    const int fd = open(inside.c_str(),
                                        O_CREAT | O_EXCL | O_CLOEXEC, 0600);
                    if (claim.IsTaken() || fd == -1)
                        return 1;
                    close(fd);
                    unlink(inside.c_str());
                }
                return 0;
            }));
    for (const pid_t child : children)
        EXPECT_EQ(StatusOf(child), 0);
}

TEST(PidFileClaim, ChildKeepsTheClaimAfterItsParent)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    const std::string mayEnd = dir.File("may-end");
    const pid_t parent = InChild(
        [&]
        {
            // Not freed: the parent ends as a launcher does.
            auto* const claim = new CPidFileClaim(path);
            InChild(
                [&]
                {
                    WaitUntil([&] { return FileExists(mayEnd); });
                    claim->Release();
                    return 0;
                });
            return 0;
        });
    EXPECT_EQ(StatusOf(parent), 0);
    EXPECT_TRUE(FileExists(path + ".lock"));

    std::thread helper(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            EXPECT_TRUE(FileExists(path + ".lock"));
            WriteFile(mayEnd, "");
        });
    const CPidFileClaim claim(path);
    EXPECT_FALSE(claim.IsTaken());
    EXPECT_TRUE(FileExists(mayEnd));
    helper.join();
}

TEST(PidFileClaim, KilledHolderLeavesTheWayFree)
{
    const CTempDir dir;
    const std::string path = dir.File("a.pid");
    const pid_t holder = InChild(
        [&]
        {
            const CPidFileClaim claim(path);
            kill(getpid(), SIGKILL);
            return 0;
        });
    StatusOf(holder);
    EXPECT_TRUE(FileExists(path + ".lock"));
    EXPECT_FALSE(CPidFileClaim(path).IsTaken());
    EXPECT_FALSE(FileExists(path + ".lock"));
}

TEST(PidFileClaim, UnusableDirectoryMeansNoClaimAndNoWait)
{
    const CTempDir dir;
    EXPECT_FALSE(CPidFileClaim(dir.File("none/a.pid")).IsTaken());
}

} // namespace
