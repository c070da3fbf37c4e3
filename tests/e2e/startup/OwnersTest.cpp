// SPDX-License-Identifier: Apache-2.0
//
// A start in an installation and with files that others can change.

#include "support/Host.h"
#include "support/Service.h"
#include "support/ShowKeys.h"
#include "support/Spoiled.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

using Lines = std::vector<std::string>;

const Lines kStrict = {"--domain_var", "strict.owner=1"};

// The log's records about owners.
Lines Complaints(const CHost& host)
{
    Lines lines;
    for (const std::string& record : host.Records("showkeys"))
        if (record.find("can be changed by others") != std::string::npos)
            lines.push_back(record);
    return lines;
}

CProcessResult Start(const CHost& host, const Lines& options = {})
{
    return host.RunTool("showkeys", kShowKeys, options);
}

Lines Tree(const std::string& directory)
{
    Lines names;
    for (const auto& item : fs::recursive_directory_iterator(directory))
        names.push_back(item.path().string());
    std::sort(names.begin(), names.end());
    return names;
}

void ForgetLog(const CHost& host)
{
    WriteFile(host.File("work/log/showkeys.log"), "");
}

// A strict start is refused and leaves everything as it is; another one warns.
void ExpectPlaceIsJudged(const CHost& host, const std::string& path)
{
    const std::string text = ChangeableText(path);
    const Lines before = Tree(host.Bin());
    const CProcessResult strict = Start(host, kStrict);
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.err, "showkeys: " + text + "\n");
    EXPECT_EQ(strict.out, "");
    EXPECT_EQ(Tree(host.Bin()), before);
    EXPECT_EQ(host.Log("showkeys"), "");

    EXPECT_EQ(Start(host).status, 0);
    EXPECT_EQ(Complaints(host), Lines{"WARNING kza: " + text});
}

TEST(Owners, PlacesOfAStartAreWarnedOfOrRefused)
{
    const CHost host(true);
    ASSERT_EQ(Start(host).status, 0);
    WriteFile(host.File("work/events.db"), "");
    fs::create_directory(host.File("work/run"));
    EXPECT_EQ(Start(host, kStrict).status, 0);
    EXPECT_EQ(Complaints(host), Lines{});

    for (const std::string name :
         {"", "/kz_agent", "/lib", "/lib/libkza_core.so.12.0.0", "/lua",
          "/kza_core", "/work", "/work/log", "/work/log/showkeys.log",
          "/work/run", "/work/diag", "/work/events.db"})
    {
        const std::string path = host.Bin() + name;
        for (const mode_t more : {0020, 0002, 01002})
        {
            SCOPED_TRACE(path + " " + std::to_string(more));
            ForgetLog(host);
            const CSpoiled spoiled(path, more);
            ExpectPlaceIsJudged(host, path);
        }
        SCOPED_TRACE(path);
        ForgetLog(host);
        const CSpoiled spoiled(path);
        ExpectPlaceIsJudged(host, path);
    }
}

TEST(Owners, TheDirectoryThatHoldsAPlaceCounts)
{
    const CHost host(false);
    const std::string holder = fs::path(host.Bin()).parent_path();
    const CSpoiled spoiled(holder, 01777);
    const CProcessResult strict = Start(host, kStrict);
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.err, "showkeys: " + ChangeableText(holder) + "\n");
    EXPECT_EQ(Start(host).status, 0);
    EXPECT_EQ(Complaints(host),
              Lines{"WARNING kza: " + ChangeableText(holder)});
}

// As in /tmp.
TEST(Owners, AMissingWorkingDirectoryIsAllThatARefusedStartMakes)
{
    const CHost host(false);
    const CTempDir shared;
    const CSpoiled spoiled(shared.Path(), 01777);
    Lines options = {"--trace", "*", "--workdir", shared.File("work")};
    options.insert(options.end(), kStrict.begin(), kStrict.end());
    const CProcessResult strict = Start(host, options);
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.err, "showkeys: " + ChangeableText(shared.Path()) + "\n");
    EXPECT_EQ(Tree(shared.Path()), Lines{shared.File("work")});
}

TEST(Owners, LinksOfTheInstallationAreJudgedByWhatTheyLeadTo)
{
    const CHost host(false);
    const CTempDir elsewhere;
    fs::rename(host.File("lua"), elsewhere.File("lua"));
    fs::create_directory_symlink(elsewhere.File("lua"), host.File("lua"));
    EXPECT_EQ(Start(host, kStrict).status, 0);
    const CSpoiled spoiled(elsewhere.Path(), 0777);
    EXPECT_EQ(Start(host, kStrict).err,
              "showkeys: " + ChangeableText(elsewhere.Path()) + "\n");
}

TEST(Owners, NothingDetachesInARefusedStart)
{
    const CService service("ownrefused");
    service.SetModule("return {}");
    const std::string lua = service.Host().File("lua");
    const CSpoiled spoiled(lua, 0777);
    CServiceOptions options;
    options.arguments = kStrict;
    const CProcessResult result = service.Start(options);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ownrefused: " + ChangeableText(lua) + "\n");
    EXPECT_FALSE(FileExists(service.PidFile()));
    EXPECT_EQ(service.Processes().size(), 0U);
}

TEST(Owners, PidAndLockFilesAreWarnedOfOrRefused)
{
    const CService service("ownpid");
    service.SetModule("return {init = function() return 7 end}");
    CServiceOptions strict;
    strict.arguments = kStrict;
    int starts = 0;
    for (const std::string suffix : {"", ".lock"})
    {
        SCOPED_TRACE(suffix);
        const std::string file = service.PidFile() + suffix;
        WriteFile(file, "");
        const CSpoiled spoiled(file, 0666);
        const std::string text = "kza: '/var/run/ownpid.pid" + suffix +
                                 "' can be changed by others (owner " +
                                 std::to_string(geteuid()) + ", mode 0666)";
        EXPECT_EQ(service.Start(strict).status, 1);
        EXPECT_EQ(service.Processes().size(), 0U);
        EXPECT_EQ(CountOf(service.Log(), "ERROR " + text), 1);
        EXPECT_EQ(service.Start().status, 0);
        EXPECT_TRUE(
            service.WaitForLog("The service ends with status 7", ++starts));
        EXPECT_TRUE(service.WaitUntilGone());
        EXPECT_EQ(CountOf(service.Log(), "WARNING " + text), 1);
        WriteFile(file, ""); // to be restored
    }
}

// --- The configuration ------------------------------------------------------

// A setting in each of the two files, and strict.owner in either or none.
class CConfiguredHost
{
public:
    CConfiguredHost(const std::string& local, const std::string& global)
    {
        WriteFile(Local(), "[domain]\nl=1\n" + local);
        WriteFile(Global(), "[domain]\ng=1\n" + global);
    }

    [[nodiscard]] const CHost& Host() const { return m_host; }
    [[nodiscard]] std::string Local() const
    {
        return m_host.File("work/kz_agent.ini");
    }
    [[nodiscard]] std::string Global() const
    {
        return m_host.File("etc/global");
    }

    // What a run makes of them: see Values().
    [[nodiscard]] std::string Run() const
    {
        ForgetLog(m_host);
        return Show(m_host, {"-d", "app.path.ini.global=" + Global()},
                    {"l", "g", "strict.owner"});
    }

private:
    CHost m_host{false};
};

std::string Values(const std::string& local,
                   const std::string& global,
                   const std::string& strict)
{
    return "l=" + local + "\ng=" + global + "\nstrict.owner=" + strict + "\n";
}

constexpr char kSet[] = "1 (string)";
constexpr char kUnset[] = "nil (nil)";
constexpr char kTrue[] = "true (boolean)";

TEST(Owners, AConfigurationIsWarnedOf)
{
    const CConfiguredHost host("", "");
    EXPECT_EQ(host.Run(), Values(kSet, kSet, kUnset));
    EXPECT_EQ(Complaints(host.Host()), Lines{});
    const CSpoiled local(host.Local(), 0666);
    const CSpoiled global(host.Global());
    EXPECT_EQ(host.Run(), Values(kSet, kSet, kUnset));
    EXPECT_EQ(Complaints(host.Host()),
              (Lines{"WARNING kza: " + ChangeableText(host.Global()),
                     "WARNING kza: " + ChangeableText(host.Local())}));
}

TEST(Owners, AConfigurationIsNotReadWhenStrict)
{
    const CConfiguredHost host("", "strict.owner=1\n");
    EXPECT_EQ(host.Run(), Values(kSet, kSet, kSet));
    EXPECT_EQ(Complaints(host.Host()), Lines{});
    const CSpoiled local(host.Local(), 0666);
    EXPECT_EQ(host.Run(), Values(kUnset, kSet, kTrue));
    EXPECT_EQ(Complaints(host.Host()),
              Lines{"ERROR kza: " + ChangeableText(host.Local())});
    const CSpoiled global(fs::path(host.Global()).parent_path());
    EXPECT_EQ(host.Run(), Values(kUnset, kUnset, kTrue));
    const std::string directory = fs::path(host.Global()).parent_path();
    EXPECT_EQ(Complaints(host.Host()),
              (Lines{"ERROR kza: " + ChangeableText(directory),
                     "ERROR kza: " + ChangeableText(host.Local())}));
}

// A file that others can change is no way to a laxer rule.
TEST(Owners, OnlyATrustedFileMakesALaxerRule)
{
    const CConfiguredHost host("strict.owner=0\n", "strict.owner=1\n");
    EXPECT_EQ(host.Run(), Values(kSet, kSet, "0 (string)"));
    {
        const CSpoiled global(host.Global(), 0666);
        EXPECT_EQ(host.Run(), Values(kSet, kSet, "0 (string)"));
        EXPECT_EQ(Complaints(host.Host()),
                  Lines{"WARNING kza: " + ChangeableText(host.Global())});
    }
    const CSpoiled local(host.Local(), 0666);
    EXPECT_EQ(host.Run(), Values(kUnset, kSet, kTrue));
    EXPECT_EQ(Complaints(host.Host()),
              Lines{"ERROR kza: " + ChangeableText(host.Local())});
}

TEST(Owners, AnyFileMakesAStricterRule)
{
    const CConfiguredHost host("strict.owner=true\n", "strict.owner=0\n");
    const CSpoiled local(host.Local(), 0666);
    EXPECT_EQ(host.Run(), Values(kUnset, kSet, kTrue));
    const CSpoiled lua(host.Host().File("lua"), 0777);
    EXPECT_EQ(Start(host.Host()).status, 1);
}

TEST(Owners, TheCommandLineCountsBeforeTheFiles)
{
    const CConfiguredHost host("strict.owner=1\n", "strict.owner=1\n");
    const CSpoiled local(host.Local(), 0666);
    EXPECT_EQ(Show(host.Host(), {"-d", "strict.owner=0"}, {"l"}),
              std::string("l=") + kSet + "\n");
    EXPECT_EQ(Show(host.Host(), {"-d", "strict.owner=1"}, {"l"}),
              std::string("l=") + kUnset + "\n");
}

} // namespace
