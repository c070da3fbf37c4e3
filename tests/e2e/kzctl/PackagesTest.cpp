// SPDX-License-Identifier: Apache-2.0
//
// kzctl packages, install and remove, beside an agent that applies what they
// put there.

#include "e2e/kzctl/Kzctl.h"
#include "support/SigningKey.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <regex>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

const std::string kPackage = "Plugin-Widget-any-12.0.0-1.noarch.kzp";
const std::string kDone = kPackage + ".done";
const std::string kRemoval = "Plugin-Widget-any-12.0.0-1.noarch.kzu";
const std::string kRow = "Widget       12.0.0   ";

std::string Widget()
{
    return MakeZip({ZipDirectory("share/"),
                    {"share/a.txt", "first"},
                    {"./share/b c ä.txt", "second"}});
}

// An operator's desk, and an agent beside which packages are put.
class CPackageDesk
{
public:
    explicit CPackageDesk(const std::string& ini = std::string())
    {
        if (!ini.empty())
            WriteFile(m_kzctl.File("work/kz_agent.ini"), ini);
        m_kzctl.Service().Host().AddModule("apply", "return {}");
    }

    [[nodiscard]] CProcessResult Run(const Words& words) const
    {
        return m_kzctl.Run(words);
    }

    [[nodiscard]] std::string Member(const Words& words,
                                     const std::string& name) const
    {
        return m_kzctl.Member(words, name);
    }

    [[nodiscard]] std::string OnDesk(const std::string& name) const
    {
        return m_desk.File(name);
    }

    [[nodiscard]] std::string Beside(const std::string& name) const
    {
        return m_kzctl.File(name);
    }

    /// A package on the desk; answers its path.
    [[nodiscard]] std::string Make(const std::string& name,
                                   const std::string& bytes = Widget()) const
    {
        WriteFile(OnDesk(name), bytes);
        return OnDesk(name);
    }

    /// Starts the agent, which applies what waits.
    void Apply() const
    {
        const CProcessResult result = m_kzctl.Service().Host().Run(
            {"--appname", "apply", "--install_plugins"});
        ASSERT_EQ(result.status, 0) << result.err;
    }

    /// Installs and applies the widget.
    void Install() const
    {
        ASSERT_EQ(Run({"install", Make(kPackage)}).status, 0);
        Apply();
    }

    /// Names beside the agent that are those of packages or hidden.
    [[nodiscard]] std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(Beside("")))
        {
            const std::string name = entry.path().filename();
            if (name.find(".kz") != std::string::npos || name.front() == '.')
                names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    CKzctl m_kzctl;
    CTempDir m_desk;
};

using Names = std::vector<std::string>;

TEST(KzctlPackages, NoneAreNone)
{
    const CPackageDesk desk;
    ExpectSaid(desk.Run({"packages"}), 0, "", "");
    ExpectSaid(desk.Run({"packages", "--json"}), 0, "", "");
    ExpectSaid(desk.Run({"packages", "files", "Widget"}), 1, "",
               "kzctl: there is no package 'Widget'\n");
}

TEST(KzctlPackages, FromDeliveryToRemoval)
{
    const CPackageDesk desk;
    const std::string row = kRow + kPackage;
    ExpectSaid(desk.Run({"install", desk.Make(kPackage)}), 0,
               "'" + kPackage +
                   "' waits for the next start with --install_plugins\n",
               "");
    EXPECT_EQ(desk.Run({"packages"}).out, "waiting   " + row + "\n");
    desk.Apply();
    EXPECT_EQ(desk.Run({"packages"}).out, "installed " + row + ".done\n");
    WriteFile(desk.Beside("share/a.txt"), "FIRST");
    EXPECT_EQ(desk.Run({"packages"}).out,
              "changed   " + row + ".done: share/a.txt differs\n");
    fs::remove(desk.Beside("share/b c ä.txt"));
    EXPECT_EQ(desk.Run({"packages"}).out,
              "changed   " + row + ".done: share/a.txt differs and 1 more\n");
    ExpectSaid(desk.Run({"remove", "Widget"}), 0,
               "'" + kRemoval +
                   "' waits for the next start with --install_plugins\n",
               "");
    EXPECT_EQ(desk.Run({"packages"}).out,
              "changed   " + row +
                  ".done: share/a.txt differs and 1 more\n"
                  "waiting   " +
                  kRow + kRemoval + "\n");
    desk.Apply();
    EXPECT_EQ(desk.Run({"packages"}).out, "removed   " + row + ".done\n");
    ExpectSaid(desk.Run({"remove", "Widget"}), 1, "",
               "kzctl: '" + kDone + "' is removed already\n");
    EXPECT_EQ(desk.Names(), Names{kDone});
}

TEST(KzctlPackages, JsonHasTheMembersOfEach)
{
    const CPackageDesk desk;
    desk.Install();
    fs::remove(desk.Beside("share/a.txt"));
    const std::string out = desk.Run({"packages", "--json"}).out;
    EXPECT_TRUE(std::regex_match(
        out, std::regex(R"(\{"name":"Widget","version":"12\.0\.0",)"
                        R"("state":"changed","file":")" +
                        kDone +
                        R"(","time":"[-0-9]{10}T[0-9:]{8}[+]00:00",)"
                        R"("files":2,"reason":"share/a\.txt is missing",)"
                        R"("signed_by":null\}\n)")))
        << out;
    ExpectSaid(desk.Run({"packages", "files", "Widget", "--json"}), 0,
               "{\"file\":\"share/a.txt\",\"size\":5,\"state\":\"missing\"}\n"
               "{\"file\":\"share/b c ä.txt\",\"size\":6,\"state\":\"same\"}\n",
               "");
}

TEST(KzctlPackages, VerifyNamesEachFileThatIsNotAsInstalled)
{
    const CPackageDesk desk;
    desk.Install();
    ExpectSaid(desk.Run({"packages", "verify", "Widget"}), 0,
               kDone + ": 2 files, all as installed\n", "");
    WriteFile(desk.Beside("share/a.txt"), "longer than before");
    fs::remove(desk.Beside("share/b c ä.txt"));
    fs::create_directory(desk.Beside("share/b c ä.txt"));
    ExpectSaid(desk.Run({"packages", "verify", kDone}), 1,
               "changed share/a.txt\nchanged share/b c ä.txt\n", "");
    fs::remove_all(desk.Beside("share"));
    WriteFile(desk.Beside("share"), "a file");
    ExpectSaid(desk.Run({"packages", "verify", "Widget"}), 1,
               "missing share/a.txt\nmissing share/b c ä.txt\n", "");
}

TEST(KzctlPackages, OwnerIsFoundFromWhereverTheFileIsNamed)
{
    const CPackageDesk desk;
    desk.Install();
    const std::string row = "installed " + kRow + kDone + "\n";
    for (const std::string& file :
         {std::string("share/b c ä.txt"), desk.Beside("share/b c ä.txt"),
          desk.Beside("lib/../share/b c ä.txt")})
        ExpectSaid(desk.Run({"packages", "owner", file}), 0, row, "");
    ExpectSaid(desk.Run({"packages", "owner", "kz_agent"}), 1, "",
               "kzctl: no package has 'kz_agent'\n");
}

TEST(KzctlPackages, ANameThatFitsSeveralAsksForMore)
{
    const CPackageDesk desk;
    desk.Install();
    const std::string second = "Plugin-Widget-any-12.0.0-2.noarch.kzp";
    ASSERT_EQ(desk.Run({"install", desk.Make(second)}).status, 0);
    desk.Apply();
    ExpectSaid(desk.Run({"remove", "Widget"}), 1, "",
               "kzctl: 'Widget' is several packages, name one of them: " +
                   kDone + ", " + second + ".done\n");
    for (const std::string& name :
         {second, second + ".done", second.substr(0, second.size() - 4)})
        EXPECT_EQ(desk.Run({"packages", "verify", name}).status,
                  name == second ? 1 : 0)
            << name;
    ASSERT_EQ(desk.Run({"remove", second + ".done"}).status, 0);
    EXPECT_TRUE(
        fs::exists(desk.Beside("Plugin-Widget-any-12.0.0-2.noarch.kzu")));
}

TEST(KzctlPackages, WhatTheAgentRefusesIsNotPutThere)
{
    const CPackageDesk desk;
    const std::string bad = "Plugin-Bad-any-11.0.0-1.noarch.kzp";
    ExpectSaid(desk.Run({"install", desk.Make(kPackage), desk.Make(bad)}), 1,
               "",
               "kzctl: '" + bad +
                   "' is refused: the name says version '11.0.0', this agent "
                   "is 12.0.0\n");
    EXPECT_EQ(desk.Names(), Names{}) << "all or none";

    const std::string climbs = MakeZip({{"../x", "x"}});
    ExpectComplaint(desk.Run({"install", desk.Make("Climb.kzp", climbs)}), 1);
    ExpectSaid(desk.Run({"install", desk.Make("Torn.kzu", "torn")}), 1, "",
               "kzctl: 'Torn.kzu' is refused: Unable to unpack 'Torn.kzu': "
               "too short for a zip archive\n");
    ExpectComplaint(desk.Run({"install", desk.Make(".Hidden.kzp")}), 1);
    ExpectComplaint(desk.Run({"install", desk.Make("Agent-Core-x.kzp")}), 1);
    ExpectComplaint(desk.Run({"install", desk.OnDesk("none.kzp")}), 1);
    ExpectSaid(desk.Run({"install", desk.Make("w.kze")}), 1, "",
               "kzctl: '" + desk.OnDesk("w.kze") +
                   "' is no package (.kzp, .kzu)\n");
    ExpectSaid(
        desk.Run({"install", desk.OnDesk(kPackage), desk.OnDesk(kPackage)}), 1,
        "", "kzctl: '" + kPackage + "' is given twice\n");
    ExpectComplaint(desk.Run({"install"}), 2);
    EXPECT_EQ(desk.Names(), Names{});
}

TEST(KzctlPackages, WhatWaitsAndIsRefusedSaysWhy)
{
    const CPackageDesk desk;
    const std::string bad = "Plugin-Bad-any-11.0.0-1.noarch.kzp";
    WriteFile(desk.Beside(bad), Widget());
    WriteFile(desk.Beside("Torn.kzp.done"), "torn");
    ExpectSaid(desk.Run({"packages"}), 0,
               "refused   Bad          11.0.0   " + bad +
                   ": the name says version '11.0.0', this agent is 12.0.0\n"
                   "changed   Torn         -        Torn.kzp.done: " +
                   desk.Beside("Torn.kzp.done") +
                   ": too short for a zip archive\n",
               "");
    EXPECT_EQ(desk.Run({"packages", "verify", "Bad"}).status, 1);
    ExpectComplaint(desk.Run({"packages", "files", "Torn"}), 1);
    ExpectComplaint(desk.Run({"packages", "verify", "Torn"}), 1);
}

TEST(KzctlPackages, APackageThatWaitsIsReplaced)
{
    const CPackageDesk desk;
    WriteFile(desk.Beside(kPackage), "before");
    WriteFile(desk.Beside(kPackage + ".sig"), "of what was before");
    ASSERT_EQ(desk.Run({"install", desk.Make(kPackage)}).status, 0);
    EXPECT_EQ(ReadFile(desk.Beside(kPackage)), Widget());
    EXPECT_EQ(desk.Names(), Names{kPackage});
    struct stat status = {};
    ASSERT_EQ(stat(desk.Beside(kPackage).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);

    ASSERT_EQ(desk.Run({"install", desk.Beside(kPackage)}).status, 0)
        << "one that is there already";
    EXPECT_EQ(ReadFile(desk.Beside(kPackage)), Widget());

    fs::remove(desk.Beside(kPackage));
    fs::create_directory(desk.Beside(kPackage));
    ExpectSaid(desk.Run({"install", desk.OnDesk(kPackage)}), 1, "",
               "kzctl: '" + desk.Beside(kPackage) + "' is a directory\n");
}

// A directory of keys, and the settings that name it.
class CKeys
{
public:
    CKeys() { WriteFile(m_dir.File("release.pem"), m_key.PublicPem()); }

    [[nodiscard]] std::string Ini() const
    {
        return "[domain]\npackages.keys=" + m_dir.Path() + "\n";
    }

    void Sign(const std::string& path) const
    {
        WriteFile(path + ".sig", m_key.Sign(ReadFile(path)));
    }

private:
    CSigningKey m_key = CSigningKey::Ecdsa();
    CTempDir m_dir;
};

TEST(KzctlPackages, SignaturesGoWithTheirPackages)
{
    const CKeys keys;
    const CPackageDesk desk(keys.Ini());
    const std::string path = desk.Make(kPackage);
    ExpectSaid(desk.Run({"install", path}), 1, "",
               "kzctl: '" + kPackage + "' is refused: it has no signature\n");
    EXPECT_EQ(desk.Names(), Names{});

    keys.Sign(path);
    ASSERT_EQ(desk.Run({"install", path}).status, 0);
    EXPECT_EQ(desk.Names(), (Names{kPackage, kPackage + ".sig"}));
    EXPECT_EQ(desk.Member({"packages", "--json"}, "signed_by"), "\"release\"");
    desk.Apply();
    EXPECT_EQ(desk.Names(), (Names{kDone, kDone + ".sig"}));
    EXPECT_EQ(desk.Member({"packages", "--json"}, "signed_by"), "\"release\"");
    EXPECT_EQ(desk.Member({"packages", "--json"}, "state"), "\"installed\"");

    ASSERT_EQ(desk.Run({"remove", "Widget"}).status, 0);
    EXPECT_EQ(desk.Names(),
              (Names{kDone, kDone + ".sig", kRemoval, kRemoval + ".sig"}));
    desk.Apply();
    EXPECT_EQ(desk.Names(), (Names{kDone, kDone + ".sig"}));
    EXPECT_EQ(desk.Member({"packages", "--json"}, "state"), "\"removed\"");
}

TEST(KzctlPackages, WithoutAUsableKeyNothingIsAccepted)
{
    const CPackageDesk desk("[domain]\npackages.keys=\n");
    ExpectSaid(desk.Run({"install", desk.Make(kPackage)}), 1, "",
               "kzctl: '" + kPackage +
                   "' is refused: its signature cannot be checked: '' is no "
                   "absolute path\n");
}

TEST(KzctlPackages, TheOptionsOfARunningAgentCount)
{
    const CKeys keys;
    const CPackageDesk desk;
    const CKzctl kzctl;
    CServiceOptions options;
    options.arguments = {"--domain_var", "packages.keys=/none"};
    ASSERT_TRUE(kzctl.Service().StartUntil(kMainRuns, options));
    ExpectSaid(kzctl.Run({"install", desk.Make(kPackage)}), 1, "",
               "kzctl: '" + kPackage +
                   "' is refused: its signature cannot be checked: '/none' "
                   "cannot be opened: No such file or directory\n");
    EXPECT_TRUE(kzctl.Service().Stop());
}

TEST(KzctlPackages, ADirectoryThatCannotBeWrittenIsSaid)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const CKzctl kzctl;
    const CTempDir desk;
    WriteFile(desk.File(kPackage), Widget());
    fs::permissions(desk.Path(), fs::perms(0755));
    kzctl.OpenToOthers();
    const CProcessResult result =
        kzctl.Run({"install", desk.File(kPackage)}, AsNobody());
    ExpectComplaint(result, 1);
    EXPECT_NE(result.err.find(": Permission denied\n"), std::string::npos);
}

} // namespace
