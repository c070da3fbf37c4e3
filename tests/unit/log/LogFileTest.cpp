// SPDX-License-Identifier: Apache-2.0
//
// The file behind the log: rights, rotation, other writers, full disks.

#include "log/LogFile.h"

#include "support/InChild.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

constexpr std::time_t kNow = 1800000000;

// A log of its own under <temporary directory>/log/app.log.
struct CPlace
{
    CTempDir dir;
    std::string log = dir.File("log");
    std::string path = log + "/app.log";

    [[nodiscard]] std::string Old(int number) const
    {
        return path + "." + std::to_string(number);
    }

    void Open(CLogFile& file, std::int64_t maxSize = 0, int keep = 5) const
    {
        file.SetPlace(log, "app.log");
        file.SetLimits(maxSize, keep);
    }
};

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

ino_t InodeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string Numbered(int number)
{
    return "line " + std::to_string(1000 + number) + "\n"; // ten bytes
}

} // namespace

TEST(LogFile, DirectoryAndFileAreForTheOwnerAlone)
{
    const CPlace place;
    const mode_t mask = umask(0);
    CLogFile file;
    place.Open(file);
    EXPECT_EQ(file.Append("a\n", kNow), 0);
    umask(mask);
    EXPECT_EQ(ModeOf(place.log), S_IFDIR | 0700);
    EXPECT_EQ(ModeOf(place.path), S_IFREG | 0600);
    EXPECT_EQ(ReadFile(place.path), "a\n");
}

TEST(LogFile, ParentsAreNotMade)
{
    const CPlace place;
    CLogFile file;
    file.SetPlace(place.log + "/deep", "app.log");
    EXPECT_EQ(file.Append("a\n", kNow), ENOENT);
    EXPECT_FALSE(FileExists(place.log));
}

TEST(LogFile, WhatIsThereIsContinued)
{
    const CPlace place;
    WriteFile(place.path, "before\n");
    CLogFile file;
    place.Open(file);
    EXPECT_EQ(file.Append("after\n", kNow), 0);
    EXPECT_EQ(ReadFile(place.path), "before\nafter\n");
}

TEST(LogFile, HalfALineIsEndedFirst)
{
    const CPlace place;
    WriteFile(place.path, "whole\nhalf");
    CLogFile file;
    place.Open(file);
    EXPECT_EQ(file.Append("a\n", kNow), 0);
    EXPECT_EQ(file.Append("b\n", kNow), 0);
    EXPECT_EQ(ReadFile(place.path), "whole\nhalf\na\nb\n");
}

TEST(LogFile, LinkInItsPlaceIsRefused)
{
    const CPlace place;
    const std::string victim = place.dir.File("victim");
    WriteFile(victim, "untouched\n");
    ASSERT_EQ(mkdir(place.log.c_str(), 0700), 0);
    for (const std::string& target : {victim, place.dir.File("missing")})
    {
        ASSERT_EQ(symlink(target.c_str(), place.path.c_str()), 0);
        CLogFile file;
        place.Open(file);
        EXPECT_EQ(file.Append("a\n", kNow), ELOOP);
        EXPECT_FALSE(file.IsOpen());
        ASSERT_EQ(unlink(place.path.c_str()), 0);
    }
    EXPECT_EQ(ReadFile(victim), "untouched\n");
    EXPECT_FALSE(FileExists(place.dir.File("missing")));
}

TEST(LogFile, LinkInPlaceOfItsDirectoryIsRefused)
{
    const CPlace place;
    const std::string elsewhere = place.dir.File("elsewhere");
    ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
    ASSERT_EQ(symlink(elsewhere.c_str(), place.log.c_str()), 0);
    CLogFile file;
    place.Open(file);
    EXPECT_NE(file.Append("a\n", kNow), 0);
    EXPECT_FALSE(FileExists(elsewhere + "/app.log"));
}

TEST(LogFile, OnlyAPlainFileIsWrittenTo)
{
    const CPlace place;
    ASSERT_EQ(mkdir(place.log.c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(place.path.c_str(), 0600), 0);
    CLogFile pipe;
    place.Open(pipe);
    EXPECT_EQ(pipe.Append("a\n", kNow), ENOTSUP);

    ASSERT_EQ(unlink(place.path.c_str()), 0);
    ASSERT_EQ(mkdir(place.path.c_str(), 0700), 0);
    CLogFile directory;
    place.Open(directory);
    EXPECT_EQ(directory.Append("a\n", kNow), EISDIR);
}

TEST(LogFile, OpeningIsTriedOnceASecond)
{
    const CPlace place;
    WriteFile(place.log, "a file where the directory should be");
    CLogFile file;
    place.Open(file);
    EXPECT_EQ(file.Append("a\n", kNow), ENOTDIR);
    ASSERT_EQ(unlink(place.log.c_str()), 0);
    EXPECT_EQ(file.Append("b\n", kNow), ENOTDIR);
    EXPECT_EQ(file.Append("c\n", kNow + 1), 0);
    EXPECT_EQ(ReadFile(place.path), "c\n");
}

TEST(LogFile, DescriptorIsNoStandardStreamAndClosesOnExec)
{
    const CPlace place;
    EXPECT_EQ(InChild(
                  [&]
                  {
                      close(STDIN_FILENO);
                      CLogFile file;
                      place.Open(file);
                      EXPECT_EQ(file.Append("a\n", kNow), 0);
                      EXPECT_GT(file.Descriptor(), STDERR_FILENO);
                      EXPECT_EQ(fcntl(file.Descriptor(), F_GETFD), FD_CLOEXEC);
                  }),
              0);
}

TEST(LogFile, RotatesBeforeItOutgrowsItsSize)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 30, 3);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
    EXPECT_EQ(ReadFile(place.path), "line 1009\n");
    EXPECT_EQ(ReadFile(place.Old(1)), "line 1006\nline 1007\nline 1008\n");
    EXPECT_EQ(ReadFile(place.Old(2)), "line 1003\nline 1004\nline 1005\n");
    EXPECT_EQ(ReadFile(place.Old(3)), "line 1000\nline 1001\nline 1002\n");
    EXPECT_EQ(ModeOf(place.path), S_IFREG | 0600);
}

TEST(LogFile, NoMoreThanTheGivenNumberIsKept)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 10, 2);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
    EXPECT_EQ(ReadFile(place.path), Numbered(9));
    EXPECT_EQ(ReadFile(place.Old(1)), Numbered(8));
    EXPECT_EQ(ReadFile(place.Old(2)), Numbered(7));
    EXPECT_FALSE(FileExists(place.Old(3)));
}

TEST(LogFile, SmallerNumberRemovesWhatWasKeptBefore)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 10, 9);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
    file.SetLimits(10, 1);
    EXPECT_EQ(file.Append(Numbered(10), kNow), 0);
    EXPECT_EQ(ReadFile(place.Old(1)), Numbered(9));
    for (int number = 2; number < 11; ++number)
        EXPECT_FALSE(FileExists(place.Old(number))) << number;
}

TEST(LogFile, NothingIsKeptWhenZeroAreToBe)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 10, 0);
    EXPECT_EQ(file.Append(Numbered(0), kNow), 0);
    EXPECT_EQ(file.Append(Numbered(1), kNow), 0);
    EXPECT_EQ(ReadFile(place.path), Numbered(1));
    EXPECT_FALSE(FileExists(place.Old(1)));
}

TEST(LogFile, SizeZeroMeansNoEnd)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 0, 3);
    std::string all;
    for (int i = 0; i < 5000; ++i)
    {
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
        all += Numbered(i);
    }
    EXPECT_EQ(ReadFile(place.path), all);
    EXPECT_FALSE(FileExists(place.Old(1)));
}

TEST(LogFile, LongLineHasAFileForItself)
{
    const CPlace place;
    const std::string line = std::string(1000, 'x') + "\n";
    CLogFile file;
    place.Open(file, 100, 3);
    EXPECT_EQ(file.Append(line, kNow), 0);
    EXPECT_EQ(file.Append("a\n", kNow), 0);
    EXPECT_EQ(file.Append(line, kNow), 0);
    EXPECT_EQ(ReadFile(place.Old(2)), line);
    EXPECT_EQ(ReadFile(place.Old(1)), "a\n");
    EXPECT_EQ(ReadFile(place.path), line);
}

TEST(LogFile, OtherWritersCountForTheSize)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 100, 3);
    EXPECT_EQ(file.Append("a\n", kNow), 0);
    WriteFile(place.log + "/big", std::string(99, 'x') + "\n");
    ASSERT_EQ(rename((place.log + "/big").c_str(), place.path.c_str()), 0);
    EXPECT_EQ(file.Append("b\n", kNow + 1), 0);
    EXPECT_EQ(ReadFile(place.path), "b\n");
    EXPECT_EQ(ReadFile(place.Old(1)), std::string(99, 'x') + "\n");
}

TEST(LogFile, OtherWriterFollowsARotationWithinASecond)
{
    const CPlace place;
    CLogFile one;
    CLogFile other;
    place.Open(one, 100, 3);
    place.Open(other, 100, 3);
    const std::string line = std::string(59, 'x') + "\n";
    EXPECT_EQ(other.Append("other 1\n", kNow), 0);
    EXPECT_EQ(one.Append(line, kNow), 0);
    EXPECT_EQ(one.Append(line, kNow), 0); // rotates
    EXPECT_EQ(other.Append("other 2\n", kNow), 0);
    EXPECT_EQ(other.Append("other 3\n", kNow + 1), 0);
    EXPECT_EQ(ReadFile(place.Old(1)), "other 1\n" + line + "other 2\n");
    EXPECT_EQ(ReadFile(place.path), line + "other 3\n");
}

TEST(LogFile, RotationByTwoWritersHappensOnce)
{
    const CPlace place;
    CLogFile one;
    CLogFile other;
    place.Open(one, 20, 3);
    place.Open(other, 20, 3);
    EXPECT_EQ(one.Append(Numbered(0), kNow), 0);
    EXPECT_EQ(one.Append(Numbered(1), kNow), 0);
    EXPECT_EQ(other.Append(Numbered(2), kNow), 0); // rotates
    EXPECT_EQ(one.Append(Numbered(3), kNow), 0);   // full for it, too
    EXPECT_EQ(ReadFile(place.path), Numbered(2) + Numbered(3));
    EXPECT_EQ(ReadFile(place.Old(1)), Numbered(0) + Numbered(1));
    EXPECT_FALSE(FileExists(place.Old(2)));
}

TEST(LogFile, MovedOrRemovedFileIsMadeAgainWithinASecond)
{
    const CPlace place;
    CLogFile file;
    place.Open(file);
    EXPECT_EQ(file.Append("a\n", kNow), 0);
    ASSERT_EQ(unlink(place.path.c_str()), 0);
    EXPECT_EQ(file.Append("b\n", kNow + 1), 0);
    EXPECT_EQ(ReadFile(place.path), "b\n");
    ASSERT_EQ(rename(place.log.c_str(), place.dir.File("away").c_str()), 0);
    EXPECT_EQ(file.Append("c\n", kNow + 2), 0);
    EXPECT_EQ(ReadFile(place.path), "c\n");
}

TEST(LogFile, DescriptorKeepsItsNumber)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 10, 3);
    EXPECT_EQ(file.Append(Numbered(0), kNow), 0);
    const int descriptor = file.Descriptor();
    const ino_t inode = InodeOf(place.path);
    EXPECT_EQ(file.Append(Numbered(1), kNow), 0);
    EXPECT_NE(InodeOf(place.path), inode);
    EXPECT_EQ(file.Descriptor(), descriptor);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
}

TEST(LogFile, LockOfAnotherProcessIsNotWaitedFor)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 20, 3);
    EXPECT_EQ(file.Append(Numbered(0), kNow), 0);

    // The other process holds the lock, and dies with it.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t other = fork();
    if (other == 0)
    {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        const int own = open(place.path.c_str(), O_RDWR);
        const char answer = fcntl(own, F_SETLK, &lock) == 0 ? 'y' : 'n';
        if (write(ready[1], &answer, 1) == 1)
            pause();
        _exit(1);
    }
    char answer = 0;
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');

    for (int i = 1; i < 5; ++i)
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
    EXPECT_FALSE(FileExists(place.Old(1)));
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    EXPECT_EQ(file.Append(Numbered(5), kNow), 0);
    EXPECT_EQ(ReadFile(place.path), Numbered(5));
    EXPECT_EQ(ReadLines(place.Old(1)).size(), 5U);
    close(ready[0]);
    close(ready[1]);
}

TEST(LogFile, LockEndsWithTheRotation)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 10, 3);
    EXPECT_EQ(file.Append(Numbered(0), kNow), 0);
    EXPECT_EQ(file.Append(Numbered(1), kNow), 0);
    EXPECT_EQ(InChild(
                  [&]
                  {
                      for (const auto& path : {place.path, place.Old(1)})
                      {
                          struct flock lock = {};
                          lock.l_type = F_WRLCK;
                          const int own = open(path.c_str(), O_RDWR);
                          EXPECT_EQ(fcntl(own, F_SETLK, &lock), 0) << path;
                          close(own);
                      }
                  }),
              0);
}

TEST(LogFile, RotationThatFailsIsToldOnceAndTheFileGrows)
{
    const CPlace place;
    CLogFile file;
    place.Open(file, 20, 1);
    WriteFile(place.Old(1) + "/in the way", "");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(file.Append(Numbered(i), kNow), 0);
    EXPECT_NE(file.TakeRotationError(), 0);
    EXPECT_EQ(file.TakeRotationError(), 0);
    EXPECT_EQ(file.Append(Numbered(5), kNow + 1), 0);
    EXPECT_EQ(file.TakeRotationError(), 0);
    EXPECT_EQ(ReadLines(place.path).size(), 6U);

    // Once the way is clear it rotates, and a later failure is told again.
    ASSERT_EQ(unlink((place.Old(1) + "/in the way").c_str()), 0);
    ASSERT_EQ(rmdir(place.Old(1).c_str()), 0);
    EXPECT_EQ(file.Append(Numbered(6), kNow + 2), 0);
    EXPECT_EQ(file.TakeRotationError(), 0);
    EXPECT_EQ(ReadFile(place.path), Numbered(6));
    ASSERT_EQ(unlink(place.Old(1).c_str()), 0);
    WriteFile(place.Old(1) + "/in the way", "");
    EXPECT_EQ(file.Append(Numbered(7), kNow + 3), 0);
    EXPECT_EQ(file.Append(Numbered(8), kNow + 3), 0);
    EXPECT_NE(file.TakeRotationError(), 0);
}

TEST(LogFile, FullDiskLosesLinesAndTearsNoLaterOne)
{
    const CPlace place;
    ASSERT_EQ(mkdir(place.log.c_str(), 0700), 0);
    EXPECT_EQ(InChild(
                  [&]
                  {
                      EnterMountNamespace();
                      MountTmpfs(place.log, "64k");
                      CLogFile file;
                      place.Open(file);
                      const std::string line = std::string(999, 'x') + "\n";
                      int error = 0;
                      for (int i = 0; i < 100 && error == 0; ++i)
                          error = file.Append(line, kNow);
                      EXPECT_EQ(error, ENOSPC);
                      EXPECT_EQ(file.Append(line, kNow), ENOSPC);

                      // Torn at the end of a page; then there is room again.
                      const std::string full = ReadFile(place.path);
                      EXPECT_NE(full.back(), '\n');
                      MountTmpfs(place.log, "64k");
                      WriteFile(place.path, full.substr(full.size() - 1500));
                      EXPECT_EQ(file.Append("after\n", kNow + 1), 0);
                      const auto lines = ReadLines(place.path);
                      EXPECT_EQ(lines.back(), "after");
                      for (std::size_t i = 1; i + 2 < lines.size(); ++i)
                          EXPECT_EQ(lines[i], line.substr(0, 999));
                  }),
              0);
}
