// SPDX-License-Identifier: Apache-2.0

#include "base/Owner.h"

#include <gtest/gtest.h>

#include <unistd.h>

using KzaCore::CanOthersChange;

namespace
{

struct stat StatusOf(uid_t owner, mode_t mode)
{
    struct stat status = {};
    status.st_uid = owner;
    status.st_mode = mode;
    return status;
}

TEST(Owner, OnlyRootAndTheProcesssUserMayWrite)
{
    const uid_t other = geteuid() + 1000;
    const struct
    {
        uid_t owner;
        mode_t mode;
        bool canOthers;
    } cases[] = {
        {0, 0100600, false},        {0, 0100755, false},
        {geteuid(), 040755, false}, {geteuid(), 0100644, false},
        {0, 0100620, true},         {0, 0100602, true},
        {geteuid(), 0100664, true}, {geteuid(), 040777, true},
        {geteuid(), 041777, true},  {other, 0100600, true},
        {other, 0100400, true},
    };
    for (const auto& test : cases)
        EXPECT_EQ(CanOthersChange(StatusOf(test.owner, test.mode)),
                  test.canOthers)
            << test.owner << " " << std::oct << test.mode;
}

TEST(Owner, TheTextNamesOwnerAndMode)
{
    EXPECT_EQ(KzaCore::ChangeableText("/etc/x", StatusOf(1000, 0100664)),
              "'/etc/x' can be changed by others (owner 1000, mode 0664)");
    EXPECT_EQ(KzaCore::ChangeableText("/tmp", StatusOf(0, 041777)),
              "'/tmp' can be changed by others (owner 0, mode 1777)");
}

} // namespace
