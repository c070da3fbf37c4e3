// SPDX-License-Identifier: Apache-2.0

#include "base/CopyFile.h"

#include "support/InChild.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using KzaCore::CopyFile;
using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

class CopiedFile : public ::testing::Test
{
protected:
    CTempDir m_dir;
    std::string m_from = m_dir.File("from");
    std::string m_to = m_dir.File("to");
};

TEST_F(CopiedFile, HasTheSameBytesWhateverTheirNumber)
{
    for (const std::size_t size : {0U, 1U, 256U * 1024U, 600000U})
    {
        SCOPED_TRACE(size);
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i % 251);
        WriteFile(m_from, bytes);
        ASSERT_TRUE(CopyFile(m_from, m_to));
        EXPECT_EQ(ReadFile(m_to), bytes);
        fs::remove(m_to);
    }
}

TEST_F(CopiedFile, HasAModeOfItsOwn)
{
    WriteFile(m_from, "x");
    ASSERT_EQ(chmod(m_from.c_str(), 0466), 0);
    const mode_t before = umask(077);
    const bool isCopied = CopyFile(m_from, m_to);
    umask(before);
    ASSERT_TRUE(isCopied);
    struct stat status = {};
    ASSERT_EQ(stat(m_to.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(CopiedFile, NothingIsReplacedOrFollowed)
{
    WriteFile(m_from, "new");
    WriteFile(m_to, "kept");
    EXPECT_FALSE(CopyFile(m_from, m_to));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(ReadFile(m_to), "kept");
    fs::remove(m_to);
    fs::create_symlink("elsewhere", m_to);
    EXPECT_FALSE(CopyFile(m_from, m_to));
    EXPECT_FALSE(fs::exists(m_dir.File("elsewhere")));
}

TEST_F(CopiedFile, OnlyRegularFilesAreCopied)
{
    ASSERT_EQ(mkfifo(m_from.c_str(), 0600), 0);
    EXPECT_FALSE(CopyFile(m_from, m_to));
    EXPECT_FALSE(CopyFile(m_dir.Path(), m_to));
    EXPECT_FALSE(CopyFile(m_dir.File("none"), m_to));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(fs::exists(m_to));
}

TEST_F(CopiedFile, NoneIsLeftOfOneThatFindsNoRoom)
{
    WriteFile(m_from, std::string(100000, 'x'));
    const int status = InChild(
        [this]
        {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {5000, 5000};
            setrlimit(RLIMIT_FSIZE, &limit);
            EXPECT_FALSE(CopyFile(m_from, m_to));
            EXPECT_EQ(errno, EFBIG);
        });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(fs::exists(m_to));
}

} // namespace
