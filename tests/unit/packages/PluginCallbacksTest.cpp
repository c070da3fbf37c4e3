// SPDX-License-Identifier: Apache-2.0
//
// What the callbacks of the package steps answer when something is missing.

#include "AgentApp.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace TestSupport;

namespace
{

TEST(PluginCallbacks, WithoutTheApplicationEveryEntryIsLeftOut)
{
    const wxString path;
    EXPECT_FALSE(CAgentApp::InstallPluginZipCB(nullptr, nullptr, &path));
    EXPECT_FALSE(CAgentApp::UninstallPluginZipCB(nullptr, nullptr, &path));
}

// In a child, which an application object changes for good.
TEST(PluginCallbacksDeathTest, WithoutAnEntryNothingIsDeleted)
{
    const CTempDir dir;
    WriteFile(dir.File("file"), "stays");
    const auto ask = [&]
    {
        CAgentApp app;
        const wxString path = dir.File("file");
        return CAgentApp::InstallPluginZipCB(&app, nullptr, &path) &&
               CAgentApp::UninstallPluginZipCB(&app, nullptr, &path);
    };
    EXPECT_EXIT(std::_Exit(ask() ? 7 : 1), testing::ExitedWithCode(7), "");
    EXPECT_EQ(ReadFile(dir.File("file")), "stays");
}

} // namespace
