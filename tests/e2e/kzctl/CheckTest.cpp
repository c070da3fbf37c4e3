// SPDX-License-Identifier: Apache-2.0
//
// kzctl check: what a start would trip over, told without one.

#include "e2e/kzctl/Kzctl.h"
#include "e2e/service/Installed.h"
#include "support/Spoiled.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// Fails when it is run, not when it is compiled.
constexpr char kRunsNot[] = "error('the module ran')";

// A host that is checked, and what is said of it.
class CChecked
{
public:
    explicit CChecked(const char* module = kRunsNot) : m_kzctl(module) {}

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_kzctl.File(name);
    }
    [[nodiscard]] std::string Ini() const { return File("work/kz_agent.ini"); }

    [[nodiscard]] const CKzctl& Kzctl() const { return m_kzctl; }

    /// Expects these lines among those of the check, and its status.
    void Expect(int status,
                const std::vector<std::string>& lines,
                const Words& options = {}) const
    {
        Words words = {"check"};
        if (!options.empty())
            words.push_back("--");
        words.insert(words.end(), options.begin(), options.end());
        const CProcessResult result = m_kzctl.Run(words);
        EXPECT_EQ(result.status, status) << result.out;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out.find("the module ran"), std::string::npos);
        for (const std::string& line : lines)
            EXPECT_NE(("\n" + result.out).find("\n" + line + "\n"),
                      std::string::npos)
                << line << "\n  in\n"
                << result.out;
    }

private:
    CKzctl m_kzctl;
};

TEST(KzctlCheck, AHostThatIsFine)
{
    const CChecked host;
    host.Expect(
        0, {"ok      options       none",
            "ok      configuration '" + host.Ini() + "' is not there",
            "ok      directory     '" + host.File("lib") + "'",
            "ok      directory     '" + host.File("work") + "' will be made",
            "ok      pid file      '/var/run/kz_agent.pid'",
            "ok      module        'kz_agent' is '" +
                host.File("lua/kz_agent.lua") + "'"});
    EXPECT_FALSE(fs::exists(host.File("work"))) << "nothing is started or made";
}

TEST(KzctlCheck, EachLineIsAnObject)
{
    const CChecked host;
    const CProcessResult result = host.Kzctl().Run({"check", "--json"});
    EXPECT_EQ(result.out.rfind("{\"result\":\"ok\",\"what\":\"options\","
                               "\"text\":\"none\"}\n",
                               0),
              0U)
        << result.out;
    EXPECT_NE(result.out.find("{\"result\":\"ok\",\"what\":\"sums\",\"text\":"),
              std::string::npos)
        << result.out;
}

TEST(KzctlCheck, Options)
{
    const CChecked host;
    host.Expect(1, {"error   options       Unknown long option 'fly'"},
                {"--fly"});
    host.Expect(
        0,
        {"warning options       --lua_path '/none/?.lua': there is no "
         "directory '/none'",
         "warning options       --lua_path '/y' has no '?' for the module",
         "warning options       --lua_path 'x/?.lua' begins in the current "
         "directory, which is '" +
             host.File("work") + "' in the background",
         "warning options       --extdir 'none': there is no directory '" +
             host.File("none") + "'",
         "warning options       --extdir 'none' does not count, only the last "
         "one does",
         "warning options       Only words after '--' reach the script, not "
         "these: 'word'",
         "warning start         Ignoring invalid domain variable specification "
         "'foo': expected name=value format",
         "warning archives      none.kze: no matches"},
        {"--lua_path", "/none/?.lua;/y;x/?.lua", "-e", "none", "-e", "/tmp",
         "word", "-dfoo", "--zippath=none.kze", "--background",
         "--install_plugins", "--", "behind"});
}

TEST(KzctlCheck, Configuration)
{
    const CChecked host;
    WriteFile(host.Ini(), "tRACE=Appl\nTrase=Appl\nother.trace=x\n"
                          "DumpLevel=much\nsqlite.config.fly=1\n"
                          "[domain]\nany.key=1\napp.name=x\nno entry\n"
                          "[other]\nTrace=1\n");
    const std::string in = "' in '" + host.Ini() + "' is no ";
    host.Expect(
        1,
        {"ok      configuration '" + host.Ini() + "' has 8 entries",
         "warning configuration 'Trase" + in + "setting of the agent",
         "warning configuration '[other] Trace" + in + "setting of the agent",
         "warning configuration 'DumpLevel" + in +
             "integer, and ignored: 'much'",
         "warning configuration Setting 'app.name' of group "
         "[domain] is ignored: the agent sets this key itself",
         "warning configuration SQLite setting 'sqlite.config.fly' "
         "is not known",
         "error   configuration file '" + host.Ini() +
             "', line 9: '=' expected."});
    fs::remove(host.Ini());
    fs::create_directory(host.Ini());
    host.Expect(1, {"error   configuration '" + host.Ini() + "' is no file"});
}

TEST(KzctlCheck, Directories)
{
    const CChecked host;
    WriteFile(host.File("work/log/kz_agent.log"), "");
    fs::create_directory_symlink("/tmp", host.File("work/diag"));
    fs::create_directory(host.File("work/run"));
    WriteFile(host.File("work/run/kz_agent.sock"), "no socket");
    host.Expect(
        0,
        {"ok      directory     '" + host.File("work") + "'",
         "ok      log           '" + host.File("work/log/kz_agent.log") + "'",
         "warning directory     '" + host.File("work/diag") +
             "' is a symbolic link: no crash dump will be written",
         "warning socket        '" + host.File("work/run/kz_agent.sock") +
             "' is no socket: there will be none"},
        {"-d", "control.socket=1"});
    fs::remove_all(host.File("work"));
    WriteFile(host.File("work"), "");
    fs::create_directory(host.Kzctl().Service().PidFile());
    fs::remove_all(host.File("lua"));
    WriteFile(host.File("lua"), "");
    host.Expect(
        1, {"error   directory     '" + host.File("work") + "' is no directory",
            "error   directory     '" + host.File("lua") + "' is no directory",
            "error   pid file      '/var/run/kz_agent.pid' is no file"});
}

TEST(KzctlCheck, WhatOthersCanChange)
{
    const CChecked host;
    WriteFile(host.Ini(), "");
    host.Expect(0, {"ok      owners        only root and the agent can change "
                    "'" +
                    host.File("work") + "'"});
    const CSpoiled ini(host.Ini(), 0022);
    const CSpoiled core(host.File("kza_core"), 0002);
    WriteFile(host.File("Widget.kzp"), MakeZip({{"share/a", "a"}}));
    const CSpoiled package(host.File("Widget.kzp"), 0020);
    const std::string warning = "warning owners        ";
    host.Expect(0, {warning + ChangeableText(host.Ini()),
                    warning + ChangeableText(host.File("kza_core")),
                    "ok      packages      Widget.kzp: waiting"});
    const std::string error = "error   owners        ";
    const Words strict = {"-d", "strict.owner=1"};
    host.Expect(1,
                {error + ChangeableText(host.Ini()),
                 error + ChangeableText(host.File("kza_core"))},
                strict);
}

TEST(KzctlCheck, APackageThatOthersCanChangeIsRefusedWhenAskedFor)
{
    const CChecked host;
    WriteFile(host.Ini(), "[domain]\nstrict.owner=1\n");
    WriteFile(host.File("Widget.kzp"), MakeZip({{"share/a", "a"}}));
    const CSpoiled package(host.File("Widget.kzp"), 0020);
    host.Expect(1, {"error   packages      Widget.kzp: refused: " +
                    ChangeableText(host.File("Widget.kzp"))});
    EXPECT_EQ(host.Kzctl().Member({"packages", "--json"}, "state"),
              "\"refused\"");
}

TEST(KzctlCheck, DamagedEventsAreAnError)
{
    const CChecked host;
    WriteFile(host.File("work/events.db"), std::string(8192, 'x'));
    host.Expect(1, {"error   events        " + host.File("work/events.db") +
                    ": file is not a database"});
}

TEST(KzctlCheck, Archives)
{
    const CChecked host;
    const std::string good = MakeZip({{"a.lua", "return 1"}});
    WriteFile(host.File("ext/a.kze"), good);
    WriteFile(host.File("ext/b.kze"), good);
    WriteFile(host.File("ext/b.kze.version"), "version: 11.0.0-1\n");
    WriteFile(host.File("torn.kze"), good.substr(1));
    WriteFile(host.File("odd.kze"), MakeZip({{"x/a.lua", ""}, {"x/a.so", ""}}));
    CZipInput damaged("a.lua", "return 1");
    damaged.crc = 4711;
    WriteFile(host.File("damaged.kze"), MakeZip({damaged}));
    host.Expect(
        1,
        {"warning archives      Extension file '" + host.File("ext/a.kze") +
             "' does not have a corresponding '.version' file. It will not be "
             "enabled.",
         "warning archives      Ignoring extension '" + host.File("ext/b.kze") +
             "' since its version (11.0.0) doesn't match ours (12.0.0)",
         "error   archives      " + host.File("torn.kze") +
             ": the zip directory is not where its end record says",
         "error   archives      " + host.File("damaged.kze") +
             ": a.lua: wrong checksum",
         "warning archives      " + host.File("odd.kze") +
             ": no C module is ever loaded from an archive: x/a.so (1 file)"},
        {"--extdir", "ext", "--zippath", "torn.kze;damaged.kze;odd.kze"});
}

TEST(KzctlCheck, TheModuleIsCompiledAndNotRun)
{
    const CChecked host("local function (");
    const std::string path = host.File("lua/kz_agent.lua");
    host.Expect(1, {"error   module        error loading module 'kz_agent' "
                    "from file '" +
                    path + "': " + path + ":1: <name> expected near '('"});
    fs::remove(path);
    host.Expect(1, {"error   module        module 'kz_agent' not found"});
    WriteFile(host.File("kza_core/kz_agent.kze"),
              MakeZip({{"kz_agent/init.lua", kRunsNot}}));
    host.Expect(0,
                {"ok      module        'kz_agent' is '" +
                 host.File("kza_core/kz_agent.kze") + "/kz_agent/init.lua'"});
    WriteFile(host.File("own/kz_agent.lua"), kRunsNot);
    host.Expect(0,
                {"ok      module        'kz_agent' is '" +
                 host.File("own/kz_agent.lua") + "'"},
                {"--lua_path", host.File("own/?.lua")});
}

TEST(KzctlCheck, PackagesAndKeys)
{
    const CChecked host;
    WriteFile(host.File("Good.kzp"), MakeZip({{"share/a", "a"}}));
    WriteFile(host.File("Torn.kzp"), "torn");
    WriteFile(host.File("Old.kzp.done"),
              MakeZip({{"share/b", "b"}, {"share/c", "c"}}));
    WriteFile(host.File("share/b"), "b");
    host.Expect(1,
                {"ok      packages      Good.kzp: waiting",
                 "warning packages      Good.kzp: applied only with "
                 "--install_plugins",
                 "error   packages      Torn.kzp: refused: Unable to unpack '" +
                     host.File("Torn.kzp") + "': too short for a zip archive",
                 "warning packages      Old.kzp.done: changed: share/c is "
                 "missing"});
    fs::create_directory(host.File("keys"));
    WriteFile(host.File("keys/bad.pem"), "no key");
    host.Expect(1,
                {"error   keys          no package will be applied: no usable "
                 "key is in '" +
                     host.File("keys") + "'",
                 "error   packages      Good.kzp: refused: its signature "
                 "cannot be checked: no usable key is in '" +
                     host.File("keys") + "'"},
                {"-d", "packages.keys=" + host.File("keys")});
    EXPECT_TRUE(fs::exists(host.File("Good.kzp"))) << "nothing is installed";
}

TEST(KzctlCheck, FipsModeIsTried)
{
    const CChecked host;
    WriteFile(host.Ini(), "FIPSMode=1\n");
    const CProcessResult result = host.Kzctl().Run({"check"});
    // Whether the host's OpenSSL has a provider for it or not.
    EXPECT_NE(result.out.find(" fips          "), std::string::npos)
        << result.out;
}

TEST(KzctlCheck, TheOptionsOfARunningAgentCount)
{
    const CChecked host(kWaitingMain);
    CServiceOptions options;
    options.arguments = {"--zippath", "none.kze", "--install_plugins"};
    ASSERT_TRUE(host.Kzctl().Service().StartUntil(kMainRuns, options));
    host.Expect(0, {"ok      options       --background --appname kz_agent "
                    "--zippath none.kze --install_plugins",
                    "warning archives      none.kze: no matches"});
    EXPECT_TRUE(host.Kzctl().Service().Stop());
}

TEST(KzctlCheck, TheOptionsOfTheInstalledServiceCount)
{
    const CInstalled installed;
    const CProcessResult result =
        installed.RunShell("/opt/kz_agent/kzctl check",
                           "options='--install_plugins --zippath none.kze'\n");
    EXPECT_EQ(result.status, 0) << result.out;
    for (const char* line :
         {"ok      options       --install_plugins --zippath none.kze\n",
          "\nwarning archives      none.kze: no matches\n",
          "\nok      directory     '/var/opt/kz_agent'\n"})
        EXPECT_NE(result.out.find(line), std::string::npos) << result.out;
}

} // namespace
