// SPDX-License-Identifier: Apache-2.0

#include "base/NewDescriptor.h"

#include "base/Descriptor.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

bool IsClosedOnExec(int fd)
{
    return fcntl(fd, F_GETFD) == FD_CLOEXEC;
}

} // namespace

TEST(NewDescriptor, PipeCarriesWhatIsWritten)
{
    std::array<int, 2> ends = {-1, -1};
    ASSERT_TRUE(OpenPipe(ends));
    const CDescriptor reader(ends[0]);
    const CDescriptor writer(ends[1]);
    EXPECT_TRUE(IsClosedOnExec(reader.Get()));
    EXPECT_TRUE(IsClosedOnExec(writer.Get()));
    ASSERT_EQ(write(writer.Get(), "x", 1), 1);
    char read = 0;
    ASSERT_EQ(::read(reader.Get(), &read, 1), 1);
    EXPECT_EQ(read, 'x');
}

TEST(NewDescriptor, TemporaryIsTheOwnersAlone)
{
    const CTempDir dir;
    std::string path = dir.File("a.XXXXXX");
    const CDescriptor file(OpenTemporary(path.data()));
    ASSERT_TRUE(file.IsOpen());
    EXPECT_TRUE(IsClosedOnExec(file.Get()));
    struct stat status
    {
    };
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST(NewDescriptor, DuplicateStandsForTheOther)
{
    const CTempDir dir;
    WriteFile(dir.File("one"), "1");
    WriteFile(dir.File("two"), "2");
    const CDescriptor one(open(dir.File("one").c_str(), O_RDONLY | O_CLOEXEC));
    const CDescriptor two(open(dir.File("two").c_str(), O_RDONLY));
    ASSERT_TRUE(DuplicateOnto(one.Get(), two.Get()));
    EXPECT_TRUE(IsClosedOnExec(two.Get()));
    char read = 0;
    ASSERT_EQ(::read(two.Get(), &read, 1), 1);
    EXPECT_EQ(read, '1');
    EXPECT_FALSE(DuplicateOnto(-1, two.Get()));
}

TEST(NewDescriptor, WhatCannotBeMadeIsAnError)
{
    std::string path = "/none/a.XXXXXX";
    EXPECT_EQ(OpenTemporary(path.data()), -1);
    EXPECT_FALSE(LockOpenFile(-1, F_WRLCK));
}
