// SPDX-License-Identifier: Apache-2.0

#include "base/NewFile.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

using namespace TestSupport;
using KzaCore::CNewFile;
using KzaCore::WriteNewFile;
namespace fs = std::filesystem;

namespace
{

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(NewFile, HasTheModeWhateverTheUmask)
{
    const CTempDir dir;
    for (const mode_t mask : {0, 022, 077, 0777})
        for (const mode_t mode : {0600, 0644})
        {
            const std::string path =
                dir.File(std::to_string(mask) + "." + std::to_string(mode));
            const mode_t before = umask(mask);
            EXPECT_TRUE(WriteNewFile(path, "text", mode));
            umask(before);
            EXPECT_EQ(ModeOf(path), mode) << std::oct << mask;
            EXPECT_EQ(ReadFile(path), "text");
        }
}

TEST(NewFile, WhatHasTheNameIsLeftAlone)
{
    const CTempDir dir;
    WriteFile(dir.File("file"), "old");
    fs::create_symlink("elsewhere", dir.File("link"));
    for (const char* const name : {"file", "link"})
    {
        errno = 0;
        EXPECT_FALSE(WriteNewFile(dir.File(name), "new", 0644));
        EXPECT_EQ(errno, EEXIST) << name;
    }
    EXPECT_EQ(ReadFile(dir.File("file")), "old");
    EXPECT_FALSE(FileExists(dir.File("elsewhere")));
}

TEST(NewFile, IsRemovedUnlessItIsFinished)
{
    const CTempDir dir;
    {
        CNewFile file;
        ASSERT_TRUE(file.Make(dir.File("a"), 0644));
        EXPECT_TRUE(file.Write("half"));
        EXPECT_TRUE(FileExists(dir.File("a")));
        errno = EINTR;
    }
    EXPECT_EQ(errno, EINTR);
    EXPECT_FALSE(FileExists(dir.File("a")));
    {
        CNewFile file;
        ASSERT_TRUE(file.Make(dir.File("b"), 0644));
        EXPECT_TRUE(file.Finish());
    }
    EXPECT_TRUE(FileExists(dir.File("b")));
}

} // namespace
