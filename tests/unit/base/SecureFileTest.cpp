// SPDX-License-Identifier: Apache-2.0

#include "kza_core/SecureFile.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/log.h>
#include <wx/string.h>

#include <sys/stat.h>
#include <unistd.h>

using KzaCore::SecureFileOrDirectory;
using namespace TestSupport;

namespace
{

mode_t ModeOf(const std::string& path)
{
    struct stat info
    {
    };
    return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(SecureFile, LeavesTheOwnerAlone)
{
    const CTempDir dir;
    const std::string file = dir.File("f\u00fcr mich");
    WriteFile(file, "x");
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0777), 0);
    EXPECT_TRUE(SecureFileOrDirectory(wxString::FromUTF8(file), false));
    EXPECT_TRUE(SecureFileOrDirectory(wxString::FromUTF8(dir.Path()), false));
    EXPECT_EQ(ModeOf(file), 0600U);
    EXPECT_EQ(ModeOf(dir.Path()), 0700U);
}

TEST(SecureFile, ALinkIsNotFollowed)
{
    const wxLogNull quiet;
    const CTempDir dir;
    WriteFile(dir.File("target"), "x");
    ASSERT_EQ(chmod(dir.File("target").c_str(), 0644), 0);
    ASSERT_EQ(symlink(dir.File("target").c_str(), dir.File("link").c_str()), 0);
    EXPECT_FALSE(SecureFileOrDirectory(dir.File("link"), false));
    EXPECT_EQ(ModeOf(dir.File("target")), 0644U);
}

TEST(SecureFile, WhatIsMissingIsAnError)
{
    const wxLogNull quiet;
    const CTempDir dir;
    EXPECT_FALSE(SecureFileOrDirectory(dir.File("missing"), false));
}

} // namespace
