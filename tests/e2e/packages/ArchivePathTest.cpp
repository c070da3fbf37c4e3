// SPDX-License-Identifier: Apache-2.0
//
// Which archives are searched, in which order, and what is said about those
// that are not.

#include "support/Host.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

using Words = std::vector<std::string>;

// Prints the search path.
constexpr char kShow[] = "return {main = function() "
                         "print(dom:Get('app.lua.zippath')) end}";

// Modules are not needed for an archive to be listed.
void AddArchive(const CHost& host,
                const std::string& name,
                const std::string& sideFile = std::string())
{
    WriteFile(host.File(name), "not opened");
    if (!sideFile.empty())
        WriteFile(host.File(name + ".version"), sideFile);
}

constexpr char kOurs[] = "version: 12.0.0-1\n";

struct CShown
{
    std::string path; ///< the search path, with the host's directory cut off
    std::string log;
    std::string err; ///< standard error
};

CShown Show(const CHost& host,
            const std::string& name,
            Words options,
            const CProcessOptions& process = {})
{
    options.insert(options.end(), {"--trace", "Appl"});
    const CProcessResult result = host.RunTool(name, kShow, options, process);
    EXPECT_EQ(result.status, 0) << result.err;
    CShown shown{result.out, host.Log(name), result.err};
    const std::string prefix = host.Bin() + "/";
    for (std::size_t at = 0;
         (at = shown.path.find(prefix, at)) != std::string::npos;)
        shown.path.erase(at, prefix.size());
    return shown;
}

// Root may read everything, so the agent runs as another user.
CProcessOptions AsNobody()
{
    CProcessOptions options;
    options.inChild = []
    {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(126);
    };
    return options;
}

void GiveToNobody(const std::string& directory)
{
    if (geteuid() == 0)
    {
        ASSERT_EQ(chown(directory.c_str(), 65534, 65534), 0);
    }
}

bool HasRecord(const std::string& log, const std::string& text)
{
    return log.find(text + "\n") != std::string::npos;
}

int CountRecords(const std::string& log, const std::string& level)
{
    int count = 0;
    for (std::size_t at = 0; (at = log.find(level, at)) != std::string::npos;
         ++at)
        ++count;
    return count;
}

TEST(ArchivePath, WithoutArchivesTheKeyStaysUnset)
{
    const CHost host(false);
    const CShown shown = Show(host, "none", {});
    EXPECT_EQ(shown.path, "nil\n");
    EXPECT_TRUE(HasRecord(shown.log, "zipFilespec: ")) << shown.log;
    EXPECT_TRUE(HasRecord(shown.log, "app.lua.zippath empty ")) << shown.log;
    EXPECT_EQ(Show(host, "kept", {"-d", "app.lua.zippath=/as/it/was"}).path,
              "/as/it/was\n");
}

TEST(ArchivePath, TheApplicationsArchiveComesBeforeTheCores)
{
    const CHost host(false);
    AddArchive(host, "kza_core/first.kze");
    AddArchive(host, "kza_core/kza.kze");
    const CShown shown = Show(host, "first", {});
    EXPECT_EQ(shown.path, "kza_core/first.kze;kza_core/kza.kze\n");
    EXPECT_TRUE(HasRecord(shown.log, "app.lua.zippath '" +
                                         host.File("kza_core/first.kze") + ";" +
                                         host.File("kza_core/kza.kze") + "' "))
        << shown.log;
    EXPECT_EQ(Show(host, "second", {}).path, "kza_core/kza.kze\n");
}

TEST(ArchivePath, TheCoreArchivesAreListedWithoutALook)
{
    const CHost host(false);
    for (const char* name : {"kza_core/unseen.kze", "kza_core/kza.kze"})
    {
        AddArchive(host, name);
        ASSERT_EQ(chmod(host.File(name).c_str(), 0), 0);
    }
    ASSERT_EQ(chmod(host.Bin().c_str(), 0777), 0);
    EXPECT_EQ(Show(host, "unseen", {}, AsNobody()).path,
              "kza_core/unseen.kze;kza_core/kza.kze\n");
}

TEST(ArchivePath, AnApplicationNamedLikeTheCoreHasOne)
{
    const CHost host(false);
    AddArchive(host, "kza_core/kza.kze");
    EXPECT_EQ(Show(host, "kza", {}).path, "kza_core/kza.kze\n");
}

TEST(ArchivePath, ItemsKeepTheirOrderAndMatchesAreSorted)
{
    const CHost host(false);
    for (const char* name : {"x/b.kze", "x/A.kze", "x/a.kze", "y/z.kze"})
        AddArchive(host, name, kOurs);
    AddArchive(host, "x/.hidden.kze", kOurs);
    AddArchive(host, "x/sub/deep.kze", kOurs);
    WriteFile(host.File("x/dir.kze/file"), "");
    EXPECT_EQ(Show(host, "order", {"-z", "y/z.kze;;x/*.kze;"}).path,
              "y/z.kze;x/A.kze;x/a.kze;x/b.kze\n");
}

TEST(ArchivePath, AFileNamedTwiceIsListedTwice)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze", kOurs);
    const std::string spec = host.File("x/a.kze") + ";" + host.File("x/?.kze");
    EXPECT_EQ(Show(host, "twice", {"-z", spec}).path, "x/a.kze;x/a.kze\n");
}

TEST(ArchivePath, OnlyMatchesOfWildcardsNeedTheirVersion)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze");
    const CShown named = Show(host, "named", {"--zippath", "x/a.kze"});
    EXPECT_EQ(named.path, "x/a.kze\n");
    EXPECT_TRUE(HasRecord(named.log, "Adding extension file '" +
                                         host.File("x/a.kze") +
                                         "' to the search path."))
        << named.log;

    const CShown matched = Show(host, "matched", {"--zippath", "x/*.kze"});
    EXPECT_EQ(matched.path, "nil\n");
    EXPECT_TRUE(
        HasRecord(matched.log, "Extension file '" + host.File("x/a.kze") +
                                   "' does not have a corresponding '.version' "
                                   "file. It will not be enabled."))
        << matched.log;
}

struct CSideFile
{
    const char* content;
    const char* reason; // %s: side file, %e: extension; empty: accepted
};

constexpr CSideFile kSideFiles[] = {
    {"version: 12.0.0-2932", ""},
    {"version:12.0.0-1 anything\n", ""},
    {"other\n\nversion: 12.0.0-0\nversion: 1\n", ""},
    {"version: +12.0.0-1\r\n", ""},
    {"version: 12.1.0-7\n",
     "Ignoring extension '%e' since its version (12.1.0) doesn't match ours "
     "(12.0.0)"},
    {"version: 12.0.0\nversion: 12.0.0-1\n",
     "File '%s' did not contain a properly formatted 'version:' line. "
     "Extension '%e' will not be enabled."},
    {"version: 4294967308.0.0-1\n",
     "Ignoring extension '%e' since its version (2147483647.0.0) doesn't match "
     "ours (12.0.0)"},
    {"Version: 12.0.0-1\n version: 12.0.0-1\n",
     "File '%s' does not contain a 'version:' line. Extension '%e' will not "
     "be enabled."},
    {" ",
     "File '%s' does not contain a 'version:' line. Extension '%e' will not "
     "be enabled."},
};

std::string Fill(std::string text, const CHost& host)
{
    const std::string archive = host.File("x/a.kze");
    for (const auto& [mark, value] :
         {std::pair<std::string, std::string>{"%s", archive + ".version"},
          {"%e", archive}})
        for (std::size_t at = 0;
             (at = text.find(mark, at)) != std::string::npos;)
            text.replace(at, mark.size(), value);
    return text;
}

TEST(ArchivePath, TheSideFileDecidesAndTheReasonIsSaid)
{
    for (const CSideFile& side : kSideFiles)
    {
        SCOPED_TRACE(side.content);
        const CHost host(false);
        AddArchive(host, "x/a.kze", side.content);
        const CShown shown = Show(host, "gate", {"-z", "x/*"});
        const std::string reason = Fill(side.reason, host);
        // The side file itself matches the pattern too and is refused.
        EXPECT_EQ(shown.path, reason.empty() ? "x/a.kze\n" : "nil\n");
        EXPECT_TRUE(reason.empty() ||
                    HasRecord(shown.log, "WARNING kza: " + reason))
            << shown.log;
    }
}

TEST(ArchivePath, WhatIsNoFileInTheSideFilesPlaceCountsAsMissing)
{
    const CHost host(false);
    AddArchive(host, "x/dir.kze");
    WriteFile(host.File("x/dir.kze.version/file"), "");
    AddArchive(host, "x/pipe.kze");
    ASSERT_EQ(mkfifo(host.File("x/pipe.kze.version").c_str(), 0600), 0);
    const CShown shown = Show(host, "noside", {"-z", "x/*.kze"});
    EXPECT_EQ(shown.path, "nil\n");
    for (const char* name : {"x/dir.kze", "x/pipe.kze"})
        EXPECT_TRUE(HasRecord(
            shown.log, "WARNING kza: Extension file '" + host.File(name) +
                           "' does not have a corresponding '.version' file. "
                           "It will not be enabled."))
            << name << "\nin\n"
            << shown.log;
}

TEST(ArchivePath, AnUnreadableSideFileHoldsNoVersion)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze", kOurs);
    ASSERT_EQ(chmod(host.File("x/a.kze.version").c_str(), 0), 0);
    GiveToNobody(host.Bin());
    const CShown shown =
        Show(host, "sidelocked", {"-z", "x/*.kze"}, AsNobody());
    EXPECT_EQ(shown.path, "nil\n");
    EXPECT_EQ(shown.err, "") << "no assertion";
    EXPECT_EQ(CountRecords(shown.log, " WARNING "), 1) << shown.log;
    EXPECT_EQ(CountRecords(shown.log, " ERROR "), 0) << shown.log;
    EXPECT_TRUE(HasRecord(
        shown.log, Fill("WARNING kza: File '%s' does not contain a 'version:' "
                        "line. Extension '%e' will not be enabled.",
                        host)))
        << shown.log;
}

TEST(ArchivePath, WhatIsNoRegularFileIsNoMatch)
{
    const CHost host(false);
    WriteFile(host.File("x/dir.kze/file"), "");
    ASSERT_EQ(mkfifo(host.File("x/pipe.kze").c_str(), 0600), 0);
    ASSERT_EQ(symlink("gone", host.File("x/dead.kze").c_str()), 0);
    AddArchive(host, "x/.hidden.kze");
    AddArchive(host, "y/a.kze");
    ASSERT_EQ(symlink("../y/a.kze", host.File("x/link.kze").c_str()), 0);
    const CShown shown =
        Show(host, "irregular",
             {"-z", "x/dir.kze;x/pipe.kze;x/dead.kze;x/.hidden.kze;x/;"
                    "x/link.kze;x/?i*"});
    EXPECT_EQ(shown.path, "x/link.kze\n");
    for (const char* item :
         {"x/dir.kze", "x/pipe.kze", "x/dead.kze", "x/.hidden.kze", "x/"})
        EXPECT_TRUE(HasRecord(shown.log, "WARNING kza: " + std::string(item) +
                                             ": no matches"))
            << item << "\nin\n"
            << shown.log;
}

TEST(ArchivePath, AnItemThatMatchesNothingIsNamedAsWritten)
{
    const CHost host(false);
    const CShown shown =
        Show(host, "nomatch", {"-z", "$HOME/no such.kze;no/*.kze;gone/x.kze"});
    EXPECT_EQ(shown.path, "nil\n");
    EXPECT_TRUE(
        HasRecord(shown.log, "WARNING kza: $HOME/no such.kze: no matches"))
        << shown.log;
    EXPECT_TRUE(HasRecord(shown.log, "WARNING kza: gone/x.kze: no matches"));
    EXPECT_EQ(shown.log.find("*.kze: no matches"), std::string::npos)
        << "a wildcard that matches nothing is silent";
}

TEST(ArchivePath, ADirectoryThatCannotBeListedHasNoMatches)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze", kOurs);
    ASSERT_EQ(chmod(host.File("x").c_str(), 0311), 0);
    ASSERT_EQ(chmod(host.Bin().c_str(), 0777), 0);
    const CShown shown =
        Show(host, "unlisted", {"-z", "x/*.kze;x/a.kze"}, AsNobody());
    chmod(host.File("x").c_str(), 0700); // so that it can be removed
    EXPECT_EQ(shown.path, "nil\n");
    EXPECT_TRUE(HasRecord(shown.log, "WARNING kza: x/a.kze: no matches"))
        << shown.log;
    EXPECT_EQ(shown.log.find("x/*.kze: no matches"), std::string::npos);
    EXPECT_EQ(shown.log.find("ERROR"), std::string::npos) << shown.log;
}

TEST(ArchivePath, EnvironmentVariablesAreExpanded)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze");
    CProcessOptions options;
    options.env = {{"KZA_TEST_DIR", host.File("x")}};
    EXPECT_EQ(Show(host, "env", {"-z", "$KZA_TEST_DIR/a.kze"}, options).path,
              "x/a.kze\n");
}

TEST(ArchivePath, AWildcardOutOfAVariableNeedsNoVersionAndIsSilent)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze");
    CProcessOptions options;
    options.env = {{"KZA_TEST_NAME", "*.kze"}};
    const CShown shown = Show(
        host, "envwild", {"-z", "x/$KZA_TEST_NAME;no/$KZA_TEST_NAME"}, options);
    EXPECT_EQ(shown.path, "x/a.kze\n");
    EXPECT_EQ(shown.log.find("no matches"), std::string::npos) << shown.log;
}

TEST(ArchivePath, RelativeItemsStartAtTheExecutable)
{
    const CHost host(false);
    AddArchive(host, "lib/ext.kze");
    CProcessOptions options;
    options.cwd = "/";
    EXPECT_EQ(
        Show(host, "relative", {"-z", "./x/../lib/ext.kze"}, options).path,
        "lib/ext.kze\n");
}

TEST(ArchivePath, TheExtensionFolderComesLast)
{
    const CHost host(false);
    AddArchive(host, "ext/e.kze", kOurs);
    AddArchive(host, "x/a.kze");
    const CShown shown =
        Show(host, "extdir", {"--extdir", "ext", "--zippath", "x/a.kze"});
    EXPECT_EQ(shown.path, "x/a.kze;ext/e.kze\n");
    EXPECT_TRUE(
        HasRecord(shown.log, "zipFilespec: x/a.kze;" + host.File("ext/*.kze")))
        << shown.log;
    EXPECT_EQ(Show(host, "noextdir", {"--extdir", "no/such"}).path, "nil\n");
}

TEST(ArchivePath, TheExtensionFolderIsNormalised)
{
    const CHost host(false);
    AddArchive(host, "ext/e.kze", kOurs);
    CProcessOptions options;
    options.env = {{"HOME", host.File("home")}};
    WriteFile(host.File("home/x"), "");
    const std::pair<const char*, std::string> cases[] = {
        {"relative", "./x/../ext/"},
        {"absolute", host.File("ext")},
        {"user", "~/../ext"},
    };
    for (const auto& [name, folder] : cases)
    {
        const CShown shown = Show(host, name, {"--extdir", folder}, options);
        EXPECT_EQ(shown.path, "ext/e.kze\n") << folder;
        EXPECT_TRUE(
            HasRecord(shown.log, "zipFilespec: " + host.File("ext/*.kze")))
            << shown.log;
    }
}

TEST(ArchivePath, TheUserDirectoryOfAnItemIsExpanded)
{
    const CHost host(false);
    AddArchive(host, "home/a.kze", kOurs);
    CProcessOptions options;
    options.env = {{"HOME", host.File("home")}};
    EXPECT_EQ(Show(host, "user", {"-z", "~/a.kze;~/*.kze"}, options).path,
              "home/a.kze;home/a.kze\n");
}

TEST(ArchivePath, WhatAPackageBringsIsFoundAtOnce)
{
    const CHost host(false);
    WriteFile(host.File("p.kzp"),
              MakeZip({{"x/a.kze", ""}, {"x/a.kze.version", kOurs}}));
    EXPECT_EQ(Show(host, "brought", {"-i", "-z", "x/*.kze"}).path, "x/a.kze\n");
}

TEST(ArchivePath, PluginsExpandTheItems)
{
    const CHost host(false);
    AddArchive(host, "x/one.kze");
    AddArchive(host, "x/two.kze");
    EXPECT_EQ(
        Show(host, "plugged", {"--zippath", "x/@.kze", "-p", "two,one"}).path,
        "x/two.kze;x/one.kze\n");
}

TEST(ArchivePath, AnUnreadableFileIsSkippedWithAWarning)
{
    const CHost host(false);
    AddArchive(host, "x/a.kze");
    ASSERT_EQ(chmod(host.File("x/a.kze").c_str(), 0), 0);
    ASSERT_EQ(chmod(host.Bin().c_str(), 0777), 0);
    const CShown shown =
        Show(host, "unreadable", {"-z", "x/a.kze"}, AsNobody());
    EXPECT_EQ(shown.path, "nil\n");
    EXPECT_TRUE(HasRecord(shown.log, "WARNING kza: Extension file '" +
                                         host.File("x/a.kze") +
                                         "' isn't readable"))
        << shown.log;
}

// The list has no way to quote a ";", so the second half of such a name would
// be looked for in the current directory, which another user may own.
TEST(ArchivePath, AnArchiveWithASemicolonInItsNameLoadsNothingElse)
{
    const CHost host(false);
    AddArchive(host, "ext/a;m.kze", kOurs);
    WriteFile(host.File("here/m.kze"),
              MakeZip({{"more.lua", "return 'evil'"}}));
    CProcessOptions options;
    options.cwd = host.File("here");
    const CProcessResult result = host.RunTool(
        "split",
        "return {main = function() print(dom:Get('app.lua.zippath')) "
        "print((pcall(require, 'more'))) print((pcall(require, 'more'))) end}",
        {"--extdir", host.File("ext")}, options);
    EXPECT_EQ(result.out, host.File("ext/a") + ";m.kze\nfalse\nfalse\n");
    const std::string log = host.Log("split");
    EXPECT_EQ(CountRecords(log, "Archive 'm.kze' is skipped: its path is not "
                                "absolute\n"),
              1)
        << log;
    EXPECT_EQ(
        CountRecords(log, "Archive '" + host.File("ext/a") + "' is skipped: "),
        1)
        << log;
}

} // namespace
