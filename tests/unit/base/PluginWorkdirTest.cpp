// SPDX-License-Identifier: Apache-2.0
//
// The working directories of plugins.

#include "base/PluginWorkdir.h"
#include "kza_core/Dom.h"

#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/Spoiled.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/string.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace KzaCore;
using TestSupport::CTempDir;
using TestSupport::DomPtr;
using TestSupport::NewDom;

namespace
{

mode_t ModeOf(const std::string& path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

struct COutcome
{
    bool made;
    wxString path;
    wxString error;
};

COutcome Make(const wxString& work,
              const wxString& plugin,
              EOwnerRule rule = EOwnerRule::Warn)
{
    COutcome outcome;
    outcome.made =
        MakePluginWorkdir(work, plugin, rule, outcome.path, outcome.error);
    return outcome;
}

} // namespace

TEST(PluginWorkdir, IsMadeForItsOwnerWhateverTheMask)
{
    const CTempDir work;
    const mode_t mask = umask(0277);
    const COutcome outcome = Make(work.Path(), "diag");
    umask(mask);
    EXPECT_TRUE(outcome.made) << outcome.error;
    EXPECT_EQ(outcome.path, work.File("diag"));
    EXPECT_EQ(ModeOf(work.File("diag")), S_IFDIR | mode_t(0700));
}

TEST(PluginWorkdir, SlashAtTheEndIsNotDoubled)
{
    const CTempDir work;
    EXPECT_EQ(Make(work.Path() + "/", "diag").path, work.File("diag"));
}

TEST(PluginWorkdir, ExistingOneIsClosedToOthers)
{
    const CTempDir work;
    ASSERT_EQ(mkdir(work.File("diag").c_str(), 0700), 0);
    ASSERT_EQ(chmod(work.File("diag").c_str(), 01777), 0);
    EXPECT_TRUE(Make(work.Path(), "diag").made);
    EXPECT_EQ(ModeOf(work.File("diag")), S_IFDIR | mode_t(0700));
}

// Whatever its mode is, a directory stays its owner's. Only root can make one
// of another user's; in other hands the mode alone is spoiled, which is mended.
TEST(PluginWorkdir, AnotherUsersOneIsWarnedOfOrRefused)
{
    const CTempDir work;
    ASSERT_EQ(mkdir(work.File("diag").c_str(), 0755), 0);
    const bool isRoot = geteuid() == 0;
    const TestSupport::CSpoiled spoiled(work.File("diag"));
    const TestSupport::CCollectedLog log;
    EXPECT_TRUE(Make(work.Path(), "diag").made);
    const wxString text = TestSupport::ChangeableText(work.File("diag"));
    EXPECT_EQ(log.m_texts, std::vector<wxString>(isRoot ? 1 : 0, text));
    const COutcome refused = Make(work.Path(), "diag", EOwnerRule::Refuse);
    EXPECT_EQ(refused.made, !isRoot);
    EXPECT_EQ(refused.path, isRoot ? "" : work.File("diag"));
    EXPECT_EQ(refused.error, isRoot ? text : "");
    EXPECT_EQ(log.m_texts, std::vector<wxString>(isRoot ? 2 : 0, text));
}

TEST(PluginWorkdir, LinkIsNotFollowed)
{
    const CTempDir work;
    const CTempDir elsewhere;
    ASSERT_EQ(chmod(elsewhere.Path().c_str(), 0755), 0);
    ASSERT_EQ(symlink(elsewhere.Path().c_str(), work.File("diag").c_str()), 0);
    const COutcome outcome = Make(work.Path(), "diag");
    EXPECT_FALSE(outcome.made);
    EXPECT_EQ(outcome.error, "Unable to make the working directory " +
                                 work.File("diag") +
                                 " (error 20: Not a directory)");
    EXPECT_EQ(ModeOf(elsewhere.Path()), S_IFDIR | mode_t(0755));
}

TEST(PluginWorkdir, MissingParentIsSaid)
{
    const CTempDir work;
    const COutcome outcome = Make(work.File("none"), "diag");
    EXPECT_FALSE(outcome.made);
    EXPECT_EQ(outcome.path, work.File("none/diag"));
    EXPECT_EQ(outcome.error, "Unable to make the working directory " +
                                 work.File("none/diag") +
                                 " (error 2: No such file or directory)");
}

TEST(PluginWorkdir, NamesThatAreNoPluginGetNone)
{
    const CTempDir work;
    const wxString names[] = {"", ".", "..", "a/b", "/", wxString("a\0b", 3)};
    for (const wxString& name : names)
    {
        SCOPED_TRACE(name);
        EXPECT_FALSE(IsPluginName(name));
        const COutcome outcome = Make(work.Path(), name);
        EXPECT_FALSE(outcome.made);
        EXPECT_EQ(outcome.path, "");
        EXPECT_FALSE(outcome.error.empty());
    }
    for (const char* const name : {"diag", "...", ".hidden", "a b", "-x"})
        EXPECT_TRUE(IsPluginName(name)) << name;
}

TEST(PluginWorkdir, DomainTakesItFromTheWorkingDirectory)
{
    const CTempDir work;
    const DomPtr dom = NewDom();
    EXPECT_EQ(dom->GetPluginWorkdirWx("diag"), "");
    dom->Set(DomKey::kPathWork, work.Path());
    EXPECT_EQ(dom->GetPluginWorkdirWx("diag"), work.File("diag"));
    EXPECT_EQ(ModeOf(work.File("diag")), S_IFDIR | mode_t(0700));
    EXPECT_EQ(dom->GetPluginWorkdirWx(".."), "");
}
