// SPDX-License-Identifier: Apache-2.0
//
// Modules out of archives, good and bad.

#include "support/Host.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace TestSupport;

namespace
{

// An archive of one module, made by the build's own tool for archives.
void MakeArchive(const std::string& path,
                 const std::string& entry,
                 const std::string& content)
{
    const CTempDir dir;
    WriteFile(dir.File(entry), content);
    CProcessOptions options;
    options.cwd = dir.Path();
    const CProcessResult result = Run(
        {KZA_CMAKE, "-E", "tar", "cf", path, "--format=zip", entry}, options);
    ASSERT_EQ(result.status, 0) << result.err;
}

// Requires the module `m.one` and prints what it is.
constexpr char kUser[] = "return {main = function()\n"
                         "  local m = require('m.one')\n"
                         "  print(m.where, m.name) end}";
constexpr char kModule[] = "#!/usr/bin/lua\n"
                           "local name, where = ...\n"
                           "return {name = name, where = where}\n";

TEST(ArchiveLoader, AModuleIsFoundAndToldItsPlace)
{
    const CHost host(false);
    const std::string archive = host.File("a.kze");
    for (const char* entry : {"m/one.lua", "m/one/init.lua"})
    {
        MakeArchive(archive, entry, kModule);
        const CProcessResult result =
            host.RunTool("user", kUser, {"-z", "a.kze"});
        EXPECT_EQ(result.out, archive + "/" + entry + "\tm.one\n")
            << result.err;
    }
}

TEST(ArchiveLoader, AByteOrderMarkIsSkipped)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua",
                "\xEF\xBB\xBFreturn {where = 'bom'}");
    EXPECT_EQ(host.RunTool("bom", kUser, {"-z", "a.kze"}).out, "bom\tnil\n");
}

TEST(ArchiveLoader, TheFirstArchiveWins)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua", "return {where = 'a'}");
    MakeArchive(host.File("b.kze"), "m/one.lua", "return {where = 'b'}");
    EXPECT_EQ(host.RunTool("wins", kUser, {"-z", "b.kze;a.kze"}).out,
              "b\tnil\n");
}

TEST(ArchiveLoader, TheCommandLineWinsOverArchivesAndTheseOverTheHost)
{
    const CHost host(false);
    const CTempDir dir;
    WriteFile(dir.File("m/one.lua"), "return {where = 'command line'}");
    WriteFile(host.File("lua/m/one.lua"), "return {where = 'host'}");
    MakeArchive(host.File("a.kze"), "m/one.lua", "return {where = 'archive'}");
    EXPECT_EQ(
        host.RunTool("wins", kUser, {"-z", "a.kze", "-l", dir.File("?.lua")})
            .out,
        "command line\tnil\n");
    EXPECT_EQ(host.RunTool("wins", kUser, {"-z", "a.kze"}).out,
              "archive\tnil\n");
    EXPECT_EQ(host.RunTool("wins", kUser).out, "host\tnil\n");
}

TEST(ArchiveLoader, ATracebackNamesArchiveAndLine)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua", "\n\nerror('inside')\n");
    const CProcessResult result = host.RunTool("trace", kUser, {"-z", "a.kze"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.substr(0, result.err.find('\n')),
              host.File("a.kze") + "/m/one.lua:3: inside");
}

TEST(ArchiveLoader, ASyntaxErrorNamesArchiveAndLine)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua", "\nlocal = 3\n");
    const CProcessResult result = host.RunTool("synt", kUser, {"-z", "a.kze"});
    EXPECT_EQ(result.status, 2);
    const std::string place = host.File("a.kze") + "/m/one.lua";
    EXPECT_NE(result.err.find("error loading module 'm.one' from file '" +
                              place + "':\n\t" + place + ":2:"),
              std::string::npos)
        << result.err;
}

TEST(ArchiveLoader, AnArchiveThatCannotBeUsedIsSaidOnceAndSkipped)
{
    const CHost host(false);
    MakeArchive(host.File("good.kze"), "m/one.lua", "return {where = 'good'}");
    const std::string whole = ReadFile(host.File("good.kze"));
    const std::pair<const char*, std::string> broken[] = {
        {"empty", ""},
        {"no zip", "this is no archive, though it is long enough for one"},
        {"truncated", whole.substr(0, whole.size() - 30)},
        {"head only", whole.substr(0, 20)},
    };
    for (const auto& [name, content] : broken)
    {
        SCOPED_TRACE(name);
        std::filesystem::remove_all(host.Work());
        WriteFile(host.File("bad.kze"), content);
        const CProcessResult result =
            host.RunTool("skips",
                         "return {main = function() pcall(require, 'no.such')\n"
                         "  print(require('m.one').where) end}",
                         {"-z", "bad.kze;good.kze"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "good\n");
        const std::string log = host.Log("skips");
        const std::string warning =
            "WARNING kza: Archive '" + host.File("bad.kze") + "' is skipped: ";
        const std::size_t first = log.find(warning);
        ASSERT_NE(first, std::string::npos) << log;
        EXPECT_EQ(log.find(warning, first + 1), std::string::npos) << log;
    }
}

TEST(ArchiveLoader, AMissSaysWhyAnArchiveWasNotSearched)
{
    const CHost host(false);
    WriteFile(host.File("bad.kze"), "");
    const CProcessResult result =
        host.RunTool("says", kUser, {"-z", "bad.kze"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("\n\tno usable archive '" + host.File("bad.kze") +
                              "': "),
              std::string::npos)
        << result.err;
}

TEST(ArchiveLoader, AnArchiveThatVanishesIsSkipped)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua", "return {where = 'a'}");
    const CProcessResult result =
        host.RunTool("vanish",
                     "return {main = function()\n"
                     "  print(require('m.one').where)\n"
                     "  os.remove(dom:Get('app.path.bin') .. '/a.kze')\n"
                     "  package.loaded['m.one'] = nil\n"
                     "  print((pcall(require, 'm.one'))) end}",
                     {"-z", "a.kze"});
    EXPECT_EQ(result.out, "a\nfalse\n") << result.err;
}

TEST(ArchiveLoader, AnArchiveThatChangesIsReadAgain)
{
    const CHost host(false);
    MakeArchive(host.File("a.kze"), "m/one.lua", "return {where = 'old'}");
    MakeArchive(host.File("new.kze"), "m/one.lua", "return {where = 'newer'}");
    const CProcessResult result =
        host.RunTool("change",
                     "return {main = function()\n"
                     "  local bin = dom:Get('app.path.bin')\n"
                     "  print(require('m.one').where)\n"
                     "  os.rename(bin .. '/new.kze', bin .. '/a.kze')\n"
                     "  package.loaded['m.one'] = nil\n"
                     "  print(require('m.one').where) end}",
                     {"-z", "a.kze"});
    EXPECT_EQ(result.out, "old\nnewer\n") << result.err;
}

TEST(ArchiveLoader, AnEntryWithAWrongChecksumIsAnErrorThatNamesIt)
{
    const CHost host(false);
    const std::string marker = "0123456789abcdef-not-compressible-~!@#$%^&*()";
    MakeArchive(host.File("a.kze"), "m/one.lua", "-- " + marker);
    std::string bytes = ReadFile(host.File("a.kze"));
    // The content follows the local header, its name and its extra field,
    // whose lengths are at 26 and 28; see the format's description (APPNOTE).
    const auto length = [&bytes](std::size_t at)
    {
        return static_cast<unsigned char>(bytes[at]) +
               256U * static_cast<unsigned char>(bytes[at + 1]);
    };
    bytes[30 + length(26) + length(28) + 10] ^= 0x55;
    WriteFile(host.File("a.kze"), bytes);
    const CProcessResult result = host.RunTool("crc", kUser, {"-z", "a.kze"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("error loading module 'm.one' from file '" +
                              host.File("a.kze") + "/m/one.lua':\n\t"),
              std::string::npos)
        << result.err;
}

} // namespace
