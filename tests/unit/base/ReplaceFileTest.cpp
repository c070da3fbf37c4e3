// SPDX-License-Identifier: Apache-2.0

#include "base/ReplaceFile.h"

#include "support/InChild.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using KzaCore::ReplaceFile;
using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

class ReplacedFile : public ::testing::Test
{
protected:
    [[nodiscard]] std::size_t Count() const
    {
        return static_cast<std::size_t>(std::distance(
            fs::directory_iterator(m_dir.Path()), fs::directory_iterator()));
    }

    CTempDir m_dir;
    std::string m_path = m_dir.File("file");
};

TEST_F(ReplacedFile, MakesAndReplacesWhole)
{
    ASSERT_TRUE(ReplaceFile(m_path, "first and long"));
    ASSERT_TRUE(ReplaceFile(m_path, {"new\0", 4}));
    EXPECT_EQ(ReadFile(m_path), std::string("new\0", 4));
    EXPECT_EQ(Count(), 1U);
}

TEST_F(ReplacedFile, TheUmaskAlonePermits)
{
    const mode_t before = umask(027);
    const bool isWritten = ReplaceFile(m_path, "x");
    umask(before);
    ASSERT_TRUE(isWritten);
    struct stat status = {};
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(ReplacedFile, ALinkIsReplacedAndWhatItLeadsToIsNot)
{
    WriteFile(m_dir.File("target"), "kept");
    fs::create_symlink("target", m_path);
    ASSERT_TRUE(ReplaceFile(m_path, "new"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(m_path)));
    EXPECT_EQ(ReadFile(m_dir.File("target")), "kept");
}

TEST_F(ReplacedFile, ANameAsLongAsTheSystemTakesIsNotTooLong)
{
    const std::string name(255, 'n');
    ASSERT_TRUE(ReplaceFile(m_dir.File(name), "x"));
    EXPECT_EQ(ReadFile(m_dir.File(name)), "x");
}

TEST_F(ReplacedFile, AFailureLeavesTheOldFileAndNoOther)
{
    EXPECT_FALSE(ReplaceFile(m_dir.File("none/file"), "x"));
    EXPECT_EQ(errno, ENOENT);
    fs::create_directory(m_path);
    EXPECT_FALSE(ReplaceFile(m_path, "x"));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(Count(), 1U);
    fs::remove(m_path);

    WriteFile(m_path, "old");
    const int status = InChild(
        [&]
        {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit most = {1000, 1000};
            setrlimit(RLIMIT_FSIZE, &most);
            EXPECT_FALSE(ReplaceFile(m_path, std::string(2000, 'x')));
            EXPECT_EQ(errno, EFBIG);
        });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadFile(m_path), "old");
    EXPECT_EQ(Count(), 1U);
}

} // namespace
