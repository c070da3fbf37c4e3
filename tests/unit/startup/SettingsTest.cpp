// SPDX-License-Identifier: Apache-2.0
//
// Group [domain] of the configuration files.

#include "startup/Configuration.h"

#include "kza_core/Dom.h"

#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <wx/config.h>
#include <wx/init.h>

#include <cstdlib>
#include <map>
#include <vector>

using namespace TestSupport;

namespace
{

using Texts = std::vector<wxString>;
using Keys = std::map<std::string, std::string>;

// What the two files make of an empty domain.
class CSettings
{
public:
    CSettings(const std::string& local,
              const std::string& global = std::string(),
              const std::string& stronger = std::string())
    {
        const wxInitializer framework;
        const CTempDir dir;
        WriteFile(dir.File("local"), local);
        WriteFile(dir.File("global"), global);
        const CConfigurationFiles files = {dir.File("local"),
                                           dir.File("global")};
        const DomPtr dom = NewDom();
        OpenConfiguration("kz_agent", "Orvalis", files);
        const CCollectedLog log;
        ApplySettings(files, stronger, *dom);
        delete wxConfigBase::Set(nullptr);
        m_warnings = log.m_texts;
        for (const std::string& key : dom->Keys())
            m_keys[key] = dom->Get(key);
    }

    Keys m_keys;
    Texts m_warnings;
};

TEST(Settings, EntriesOfTheGroupAloneAreKeys)
{
    const CSettings settings("Trace=Appl\na=1\n[domain]\nlog.keep=10\nb=\n"
                             "[other]\nc=1\n[domain/sub]\nd=1\n");
    EXPECT_EQ(settings.m_keys, (Keys{{"log.keep", "10"}, {"b", ""}}));
    EXPECT_EQ(settings.m_warnings, Texts());
}

TEST(Settings, FilesWithoutTheGroupSetNothing)
{
    EXPECT_EQ(CSettings("log.keep=1\n[other]\na=1\n").m_keys, Keys());
    EXPECT_EQ(CSettings("").m_keys, Keys());
}

TEST(Settings, TheLocalFileWinsOverTheGlobalOne)
{
    const CSettings settings("[domain]\nb=local\nc=local\n",
                             "[domain]\na=global\nb=global\n");
    EXPECT_EQ(settings.m_keys,
              (Keys{{"a", "global"}, {"b", "local"}, {"c", "local"}}));
    EXPECT_EQ(settings.m_warnings, Texts());
}

TEST(Settings, TheCommandLinesKeyKeepsItsValue)
{
    const CSettings settings("[domain]\na=local\nb=local\n",
                             "[domain]\nA=global\n", "a");
    EXPECT_EQ(settings.m_keys, (Keys{{"b", "local"}}));
}

// One entry for the framework, which keeps the first name it meets.
TEST(Settings, TheKeyIsWrittenAsWhereItsValueStands)
{
    EXPECT_EQ(CSettings("[Domain]\nlog.keep=2\n",
                        "[DOMAIN]\nLog.Keep=1\nLog.MaxSize=3\n")
                  .m_keys,
              (Keys{{"log.keep", "2"}, {"Log.MaxSize", "3"}}));
}

TEST(Settings, AnEntryThatTheGlobalFilePinsStays)
{
    EXPECT_EQ(CSettings("[domain]\na=local\n", "[domain]\n!a=global\n").m_keys,
              (Keys{{"a", "global"}}));
}

TEST(Settings, AGroupMayComeInPieces)
{
    EXPECT_EQ(CSettings("[domain]\na=1\n[other]\nx=1\n[domain]\nb=2\n").m_keys,
              (Keys{{"a", "1"}, {"b", "2"}}));
}

TEST(Settings, ValuesAreReadAsTheFrameworkReadsThem)
{
    setenv("KZA_TEST_PLACE", "/place", 1);
    const CSettings settings("[domain]\n"
                             "plain =  a b  # all of it\n"
                             "quoted=\"  a  \"\n"
                             "inner=a \"b\" c\n"
                             "escaped=a\\nb\\tc\\\\d\n"
                             "expanded=$KZA_TEST_PLACE/${KZA_TEST_PLACE}"
                             "$(KZA_TEST_PLACE)\n"
                             "literal=\\\\$KZA_TEST_PLACE\n"
                             "unknown=$KZA_TEST_NOWHERE/x\n"
                             "sp\\ ace=1\n"
                             "equals=a=b\n"
                             "d\u00fc=\u00e4\n");
    unsetenv("KZA_TEST_PLACE");
    EXPECT_EQ(settings.m_keys, (Keys{{"plain", "a b  # all of it"},
                                     {"quoted", "  a  "},
                                     {"inner", "a \"b\" c"},
                                     {"escaped", "a\nb\tc\\d"},
                                     {"expanded", "/place//place/place"},
                                     {"literal", "$KZA_TEST_PLACE"},
                                     {"unknown", "$KZA_TEST_NOWHERE/x"},
                                     {"sp ace", "1"},
                                     {"equals", "a=b"},
                                     {"d\u00fc", "\u00e4"}}));
    EXPECT_EQ(settings.m_warnings, Texts());
}

TEST(Settings, TheAgentsOwnKeysAreNotSet)
{
    for (const wxString name :
         {"app.path.work", "app.trace+", "app.background", "app.none",
          "App.Version", "kza.HeartbeatNow", "kza.heartbeatnow"})
    {
        const CSettings settings("[domain]\n" + name.utf8_string() +
                                 "=x\nkza.other=1\napple=1\n");
        EXPECT_EQ(settings.m_keys, (Keys{{"kza.other", "1"}, {"apple", "1"}}));
        EXPECT_EQ(settings.m_warnings,
                  Texts{"Setting '" + name +
                        "' of group [domain] is ignored: the agent sets this "
                        "key itself"});
    }
}

TEST(Settings, ANameThatCannotBeLookedUpIsAWarning)
{
    const CSettings settings("[domain]\na/b=1\n=2\n.=3\n..=4\n");
    EXPECT_EQ(settings.m_keys, (Keys{{".", "3"}, {"..", "4"}}));
    const Texts expected = {"Setting '' of group [domain] is ignored: a name "
                            "is not empty and has no slash",
                            "Setting 'a/b' of group [domain] is ignored: a "
                            "name is not empty and has no slash"};
    EXPECT_EQ(settings.m_warnings, expected);
}

} // namespace
