// SPDX-License-Identifier: Apache-2.0

#include "base/Error.h"

#include <gtest/gtest.h>

#include <cerrno>

using namespace KzaCore;

TEST(Error, SystemTextIsThatOfTheNumber)
{
    EXPECT_EQ(SystemErrorText(ENOENT), "No such file or directory");
    EXPECT_EQ(SystemErrorText(ENOSPC), "No space left on device");
}

TEST(Error, FailSetsTheReasonAndIsFalse)
{
    std::string error = "before";
    EXPECT_FALSE(Fail(error, "too short"));
    EXPECT_EQ(error, "too short");
}

TEST(Error, FailureOfTheSystemNamesWhatWasTriedAndWhy)
{
    std::string error;
    errno = EACCES;
    EXPECT_FALSE(FailBySystem(error, "cannot be opened"));
    EXPECT_EQ(error, "cannot be opened: Permission denied");
}
