// SPDX-License-Identifier: Apache-2.0
//
// kzctl dumps, beside dumps that the agent wrote itself.

#include "e2e/kzctl/Kzctl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// Leaves a dump, and then runs.
constexpr char kCrashesOnce[] = R"lua(
local path = dom:Get('app.path.work') .. '/lived'
return { main = function()
  if io.open(path) then dom:Log('message', 'main runs') return end
  io.open(path, 'w'):close()
  require('crash').now('segv')
end }
)lua";

bool Crash(const CKzctl& kzctl)
{
    CServiceOptions options;
    options.arguments = {"--lua_cpath", KZA_BINARY_DIR "/tests/modules/?.so"};
    return kzctl.Service().StartUntil(kMainRuns, options) &&
           kzctl.Service().Stop();
}

TEST(KzctlCrashDumps, NoneAreNone)
{
    const CKzctl kzctl;
    ExpectSaid(kzctl.Run({"dumps"}), 0, "", "");
}

TEST(KzctlCrashDumps, TellWhenWhichSignalAndTheLuaStack)
{
    const CKzctl kzctl(kCrashesOnce);
    ASSERT_TRUE(Crash(kzctl));
    const std::string path = kzctl.File("work/diag/kz_agent.mdmp");
    const std::string out = kzctl.Run({"dumps"}).out;
    const std::regex line("[-0-9]{10}T[0-9:]{8}[+]00:00 SIGSEGV 12.0.0.2932 " +
                          path + "\n");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(out, found, line)) << out;
    EXPECT_EQ(found.position(), 0);
    EXPECT_NE(out.find("\n  [C]: in function 'now'\n"), std::string::npos);
    EXPECT_NE(out.find("/lua/kz_agent.lua:6: in function <"),
              std::string::npos);
    const std::string json = kzctl.Run({"dumps", "--json"}).out;
    EXPECT_TRUE(std::regex_match(
        json, std::regex(R"(\{"file":")" + path +
                         R"(","time":"[^"]*","version":"12\.0\.0\.2932",)"
                         R"("signal":"SIGSEGV",)"
                         R"("lua":\["\[C\]: in function 'now'",.*\]\}\n)")))
        << json;
}

TEST(KzctlCrashDumps, OlderOnesComeFirst)
{
    const CKzctl kzctl(kCrashesOnce);
    ASSERT_TRUE(Crash(kzctl));
    const std::string path = kzctl.File("work/diag/kz_agent.mdmp");
    fs::copy(path, path + ".1");
    const std::string out = kzctl.Run({"dumps"}).out;
    ASSERT_NE(out.find(path + ".1\n"), std::string::npos) << out;
    EXPECT_LT(out.find(path + ".1\n"), out.find(path + "\n"));
}

TEST(KzctlCrashDumps, ShowTellsProcessRegistersThreadsAndModules)
{
    const CKzctl kzctl(kCrashesOnce);
    ASSERT_TRUE(Crash(kzctl));
    const CProcessResult show = kzctl.Run({"dumps", "show", "kz_agent.mdmp"});
    EXPECT_EQ(show.status, 0) << show.err;
    for (const char* text :
         {"\nsignal    SIGSEGV\n", "\napplication kz_agent\n", "\nprocess   ",
          "\naddress   0x", "\nmemory    stacks\n", "\nsystem    Linux ",
          "--background", "\nregisters\n", "\nthreads\n", "\nmodules\n",
          "/libkza_core.so.12.0.0 "})
        EXPECT_NE(show.out.find(text), std::string::npos) << text << show.out;
    const std::string path = kzctl.File("work/diag/kz_agent.mdmp");
    EXPECT_EQ(kzctl.Run({"dumps", "show", path}).out, show.out);
    EXPECT_EQ(kzctl.Member({"dumps", "show", path, "--json"}, "application"),
              "\"kz_agent\"");
}

TEST(KzctlCrashDumps, OneThatIsCutShortIsShownAsFarAsItGoes)
{
    const CKzctl kzctl(kCrashesOnce);
    ASSERT_TRUE(Crash(kzctl));
    const std::string path = kzctl.File("work/diag/kz_agent.mdmp");
    fs::resize_file(path, 1000);
    const CProcessResult dumps = kzctl.Run({"dumps"});
    EXPECT_EQ(dumps.status, 1);
    EXPECT_NE(dumps.out.find(path), std::string::npos);
    EXPECT_EQ(dumps.err, "kzctl: " + path + ": it is cut short\n");

    fs::resize_file(path, 10);
    const std::string none = "kzctl: " + path + ": it is no crash dump\n";
    ExpectSaid(kzctl.Run({"dumps"}), 1, "", none);
    ExpectSaid(kzctl.Run({"dumps", "show", path}), 1, "", none);
    ExpectComplaint(kzctl.Run({"dumps", "show", "none.mdmp"}), 1);
    ExpectComplaint(kzctl.Run({"dumps", "fly"}), 2);
}

} // namespace
