// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Owner.h"

#include "kza_core/OpenedFile.h"

#include "support/CollectedLog.h"
#include "support/InChild.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

using namespace KzaCore;
using namespace TestSupport;
namespace fs = std::filesystem;

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
    EXPECT_EQ(ChangeableText("/etc/x", StatusOf(1000, 0100664)),
              "'/etc/x' can be changed by others (owner 1000, mode 0664)");
    EXPECT_EQ(ChangeableText("/tmp", StatusOf(0, 041777)),
              "'/tmp' can be changed by others (owner 0, mode 1777)");
}

// A file, and beside it a directory with another.
class OwnedFiles : public ::testing::Test
{
protected:
    OwnedFiles()
    {
        WriteFile(m_dir.File("file"), "file");
        WriteFile(m_dir.File("other/file"), "other");
        for (const char* name : {"file", "other/file"})
            SetMode(name, 0644);
        SetMode("other", 0755);
    }

    void SetMode(const std::string& name, mode_t mode) const
    {
        ASSERT_EQ(chmod(m_dir.File(name).c_str(), mode), 0);
    }

    // Root makes the file another user's, anyone else all the world's.
    void Spoil(const std::string& name) const
    {
        if (geteuid() != 0)
            SetMode(name, 0666);
        else if (chown(m_dir.File(name).c_str(), 12345, -1) != 0)
            FAIL();
    }

    [[nodiscard]] std::string Text(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(stat(m_dir.File(name).c_str(), &status), 0);
        return ChangeableText(m_dir.File(name), status);
    }

    // What is said of a path, by the look at it and by the descriptor.
    [[nodiscard]] TChangeable Judge(const std::string& name) const
    {
        const std::string path = m_dir.File(name);
        TChangeable looked;
        JudgePath(path, looked);
        TChangeable opened;
        COpenedFile file;
        EXPECT_TRUE(OpenAndJudge(path, file, opened)) << name;
        EXPECT_TRUE(file.IsInPlace()) << name;
        EXPECT_EQ(opened, looked) << name;
        return looked;
    }

    CTempDir m_dir;
};

TEST_F(OwnedFiles, FileAndTheDirectoryThatHoldsItAreJudged)
{
    EXPECT_EQ(Judge("file"), TChangeable{});
    EXPECT_EQ(Judge("other"), TChangeable{});
    for (const mode_t mode : {0664, 0646, 0666})
    {
        SetMode("file", mode);
        EXPECT_EQ(Judge("file"), TChangeable{Text("file")});
    }
    SetMode("file", 0644);
    Spoil("file");
    EXPECT_EQ(Judge("file"), TChangeable{Text("file")});
    for (const mode_t mode : {0775, 0757, 01777})
    {
        SetMode("other", mode);
        EXPECT_EQ(Judge("other/file"), TChangeable{Text("other")});
        EXPECT_EQ(Judge("other"), TChangeable{Text("other")});
        EXPECT_EQ(Judge("other/"), TChangeable{Text("other")});
    }
    SetMode("other/file", 0606);
    EXPECT_EQ(Judge("other/file"),
              (TChangeable{Text("other"), Text("other/file")}));
}

TEST_F(OwnedFiles, DirectoriesAboveAreNotLookedAt)
{
    WriteFile(m_dir.File("a/b/c"), "");
    SetMode("a", 0777);
    SetMode("a/b", 0755);
    SetMode("a/b/c", 0644);
    EXPECT_EQ(Judge("a/b/c"), TChangeable{});
}

TEST_F(OwnedFiles, LinksAreJudgedByWhatTheyLeadTo)
{
    fs::create_symlink("other/file", m_dir.File("relative"));
    fs::create_symlink(m_dir.File("other/file"), m_dir.File("absolute"));
    fs::create_directory_symlink("other/../other/.", m_dir.File("directory"));
    for (const char* name : {"relative", "absolute", "directory"})
        EXPECT_EQ(Judge(name), TChangeable{});
    SetMode("other", 0777);
    for (const char* name : {"relative", "absolute", "directory"})
        EXPECT_EQ(Judge(name), TChangeable{Text("other")}) << name;
    SetMode("other", 0755);
    SetMode("other/file", 0666);
    for (const char* name : {"relative", "absolute"})
        EXPECT_EQ(Judge(name), TChangeable{Text("other/file")}) << name;
    EXPECT_EQ(Judge("directory"), TChangeable{});
}

// A user who can replace a link in the middle chooses what is at the end.
TEST_F(OwnedFiles, EachLinkOfAChainCounts)
{
    fs::create_directory(m_dir.File("middle"));
    fs::create_symlink("middle/link", m_dir.File("first"));
    fs::create_symlink("../other/file", m_dir.File("middle/link"));
    SetMode("middle", 0755);
    EXPECT_EQ(Judge("first"), TChangeable{});
    SetMode("middle", 0777);
    EXPECT_EQ(Judge("first"), TChangeable{Text("middle")});
}

TEST_F(OwnedFiles, WhatIsNotThereIsNotOpened)
{
    fs::create_symlink("loop", m_dir.File("loop"));
    fs::create_symlink("nowhere", m_dir.File("dangling"));
    const std::pair<const char*, int> cases[] = {{"missing", ENOENT},
                                                 {"missing/x", ENOENT},
                                                 {"file/x", ENOTDIR},
                                                 {"dangling", ENOENT},
                                                 {"loop", ELOOP}};
    for (const auto& [name, reason] : cases)
    {
        TChangeable changeable;
        COpenedFile file;
        errno = 0;
        EXPECT_FALSE(OpenAndJudge(m_dir.File(name), file, changeable)) << name;
        EXPECT_EQ(errno, reason) << name;
        EXPECT_FALSE(file.IsOpen());
        JudgePath(m_dir.File(name), changeable);
        EXPECT_EQ(changeable, TChangeable{}) << name;
    }
    SetMode("other", 0777);
    TChangeable changeable;
    JudgePath(m_dir.File("other/missing"), changeable);
    EXPECT_EQ(changeable, TChangeable{Text("other")});
}

TEST_F(OwnedFiles, TheRootDirectoryHoldsItself)
{
    TChangeable changeable;
    COpenedFile file;
    EXPECT_TRUE(OpenAndJudge("/", file, changeable));
    EXPECT_TRUE(file.IsInPlace());
    JudgePath("//", changeable);
    struct stat status = {};
    ASSERT_EQ(stat("/", &status), 0);
    EXPECT_EQ(changeable.size(), CanOthersChange(status) ? 1U : 0U);
}

TEST_F(OwnedFiles, ARelativePathStartsAtTheCurrentDirectory)
{
    const fs::path before = fs::current_path();
    fs::current_path(m_dir.File("other"));
    SetMode("other/file", 0666);
    TChangeable changeable;
    COpenedFile file;
    EXPECT_TRUE(OpenAndJudge("file", file, changeable));
    EXPECT_TRUE(file.IsInPlace());
    fs::current_path(before);
    ASSERT_EQ(changeable.size(), 1U);
    EXPECT_EQ(changeable[0].rfind("'file' can be changed", 0), 0U)
        << changeable[0];
}

// Such a directory cannot be opened, but by root.
TEST_F(OwnedFiles, ADirectoryThatMayOnlyBePassedIsJudgedToo)
{
    ASSERT_EQ(chmod(m_dir.Path().c_str(), 0755), 0);
    for (const mode_t mode : {0311, 0333})
    {
        SetMode("other", mode);
        const TChangeable expected =
            mode == 0311 ? TChangeable{} : TChangeable{Text("other")};
        const int status = InChild(
            [&]
            {
                if (geteuid() == 0)
                {
                    ASSERT_EQ(setuid(65534), 0);
                }
                EXPECT_EQ(Judge("other/file"), expected);
            });
        EXPECT_EQ(status, 0) << std::oct << mode;
    }
    SetMode("other", 0755);
}

TEST_F(OwnedFiles, NamesBelowADirectoryAreJudgedAsByTheirPaths)
{
    fs::create_directory_symlink("other", m_dir.File("link"));
    fs::create_symlink("nowhere", m_dir.File("dangling"));
    const std::vector<std::string> names = {
        "file", "other", "other/file", "link", "none", "none/file", "dangling"};
    const auto judge = [&](const std::string& path)
    {
        TChangeable together;
        TChangeable apart;
        JudgeDirectory(path, names, together);
        JudgePath(path, apart);
        for (const std::string& name : names)
            JudgePath(path + "/" + name, apart);
        EXPECT_EQ(together, apart);
        return together.size();
    };
    EXPECT_EQ(judge(m_dir.Path()), 0U);
    SetMode("file", 0666);
    SetMode("other", 0777);
    SetMode("other/file", 0666);
    EXPECT_EQ(judge(m_dir.Path()), 3U);
    EXPECT_EQ(judge(m_dir.File("none")), 0U);
}

TEST_F(OwnedFiles, WhatIsToleratedIsSaidOnce)
{
    const TChangeable texts = {m_dir.File("a"), m_dir.File("b")};
    const CCollectedLog log;
    EXPECT_TRUE(Tolerate({}, EOwnerRule::Refuse));
    EXPECT_TRUE(Tolerate(texts, EOwnerRule::Ignore));
    EXPECT_EQ(log.m_texts.size(), 0U);
    EXPECT_TRUE(Tolerate({texts[0]}, EOwnerRule::Warn));
    EXPECT_TRUE(Tolerate(texts, EOwnerRule::Warn));
    EXPECT_EQ(log.m_texts, (std::vector<wxString>{texts[0], texts[1]}));
    EXPECT_EQ(log.m_levels,
              (std::vector<wxLogLevel>{wxLOG_Warning, wxLOG_Warning}));
    EXPECT_FALSE(Tolerate(texts, EOwnerRule::Refuse));
    EXPECT_FALSE(Tolerate(texts, EOwnerRule::Refuse));
    ASSERT_EQ(log.m_levels.size(), 4U);
    EXPECT_EQ(log.m_levels[2], static_cast<wxLogLevel>(wxLOG_Error));
    EXPECT_EQ(log.m_levels[3], static_cast<wxLogLevel>(wxLOG_Error));
}

} // namespace
