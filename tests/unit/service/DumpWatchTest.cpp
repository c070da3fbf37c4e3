// SPDX-License-Identifier: Apache-2.0

#include "service/DumpWatch.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdio>

using namespace TestSupport;

namespace
{

// As the crash handler does: written beside its place and renamed into it.
void LeaveDump(const CTempDir& dir)
{
    WriteFile(dir.File("new"), "dump");
    ASSERT_EQ(rename(dir.File("new").c_str(), dir.File("a.mdmp").c_str()), 0);
}

TEST(DumpWatch, OnlyADumpThatCameSinceIsNew)
{
    const CTempDir dir;
    LeaveDump(dir);
    CDumpWatch watch(wxString::FromUTF8(dir.File("a.mdmp")));
    EXPECT_FALSE(watch.HasNew());
    LeaveDump(dir);
    EXPECT_TRUE(watch.HasNew());
    EXPECT_FALSE(watch.HasNew());
}

TEST(DumpWatch, FirstDumpIsNewAndOneThatGoesIsNot)
{
    const CTempDir dir;
    CDumpWatch watch(wxString::FromUTF8(dir.File("a.mdmp")));
    EXPECT_FALSE(watch.HasNew());
    LeaveDump(dir);
    EXPECT_TRUE(watch.HasNew());
    ASSERT_EQ(remove(dir.File("a.mdmp").c_str()), 0);
    EXPECT_FALSE(watch.HasNew());
    LeaveDump(dir);
    EXPECT_TRUE(watch.HasNew());
}

} // namespace
