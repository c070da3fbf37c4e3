// SPDX-License-Identifier: Apache-2.0

#include "packages/ExtensionVersion.h"

#include "support/CollectedLog.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

using namespace TestSupport;

namespace
{

class ExtensionVersion : public ::testing::Test
{
protected:
    // The answer for an archive with this side file.
    bool Matches(const std::string& sideFile)
    {
        WriteFile(m_archive + ".version", sideFile);
        return ExtensionVersionMatches(m_archive, KzaCore::EOwnerRule::Ignore);
    }

    void ExpectWarning(const std::string& text)
    {
        ASSERT_EQ(m_log.m_texts.size(), 1U);
        EXPECT_EQ(m_log.m_levels[0], wxLOG_Warning);
        EXPECT_EQ(m_log.m_texts[0], text);
        m_log.m_texts.clear();
        m_log.m_levels.clear();
    }

    CTempDir m_dir;
    std::string m_archive = m_dir.File("a.kze");
    CCollectedLog m_log;
};

TEST_F(ExtensionVersion, TheAgentsOwnVersionMatchesSilently)
{
    EXPECT_TRUE(Matches("version: 12.0.0-1"));
    EXPECT_TRUE(Matches("version: 12.0.0-4294967296"));
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(ExtensionVersion, EveryRefusalIsOneWarning)
{
    EXPECT_FALSE(
        ExtensionVersionMatches(m_archive, KzaCore::EOwnerRule::Ignore));
    ExpectWarning("Extension file '" + m_archive +
                  "' does not have a corresponding '.version' file. It will "
                  "not be enabled.");
    EXPECT_FALSE(Matches(""));
    ExpectWarning("File '" + m_archive +
                  ".version' does not contain a 'version:' line. Extension '" +
                  m_archive + "' will not be enabled.");
    EXPECT_FALSE(Matches("version: 12.0.0"));
    ExpectWarning("File '" + m_archive +
                  ".version' did not contain a properly formatted 'version:' "
                  "line. Extension '" +
                  m_archive + "' will not be enabled.");
    for (const std::string other : {"12.0.1", "12.1.0", "13.0.0", "-12.0.0"})
    {
        EXPECT_FALSE(Matches("version: " + other + "-1"));
        ExpectWarning("Ignoring extension '" + m_archive +
                      "' since its version (" + other +
                      ") doesn't match ours (12.0.0)");
    }
    EXPECT_FALSE(Matches("version: 4294967308.0.0-1"));
    ExpectWarning("Ignoring extension '" + m_archive +
                  "' since its version (2147483647.0.0) doesn't match ours "
                  "(12.0.0)");
}

TEST_F(ExtensionVersion, TheAnswersAreTheSameWhenNothingIsLogged)
{
    const wxLogLevel before = wxLog::GetLogLevel();
    wxLog::SetLogLevel(wxLOG_Error);
    EXPECT_FALSE(
        ExtensionVersionMatches(m_archive, KzaCore::EOwnerRule::Ignore));
    EXPECT_TRUE(Matches("version: 12.0.0-1"));
    EXPECT_FALSE(Matches("version: 12.0.1-1"));
    EXPECT_FALSE(Matches("version: 12.0.0"));
    EXPECT_FALSE(Matches(""));
    wxLog::SetLogLevel(before);
    EXPECT_TRUE(m_log.m_texts.empty());
}

} // namespace
