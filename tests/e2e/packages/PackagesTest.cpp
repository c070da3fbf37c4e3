// SPDX-License-Identifier: Apache-2.0
//
// Packages beside the executable, as operators deliver them.

#include "e2e/packages/Packages.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

using Lines = std::vector<std::string>;

std::string Refusal(const std::string& package, const std::string& reason)
{
    return "WARNING Unable to unpack '@/" + package + "': " + reason;
}

std::string Success(const std::string& verb, const std::string& package)
{
    return "TRACE Successfully " + verb + " files for plugin '" +
           package.substr(0, package.find('.')) + "'. Deleting '@/" + package +
           "'";
}

TEST(Packages, AHostDirectoryEndsAsPromisedTwiceInARow)
{
    CPackageHost host;
    const std::string good = "Plugin-Widget-sol11-12.0.0-101.x86_64";
    const std::string old = "Plugin-Old-sol11-11.0.0-50.x86_64";
    const std::string torn = MakeZip({{"torn", Noise(1000)}});
    SZipFile wrong{"lib/wrong.so", "new"};
    wrong.crc = 1;

    host.Add(good + ".kzp", {ZipDirectory("lib/"),
                             {"lib/widget.so", "widget"},
                             {"both", "installed"}});
    host.Add(good + ".kzp.done", "from an earlier time");
    host.Add("a.kzp", {{"a", "a"}});
    host.Add("B.kzp", {{"b", "b"}});
    host.Add(old + ".kzp", {{"old", "old"}});
    host.Add("Plugin--x.kzp", {{"../escaped", "evil"}});
    host.Add("torn.kzp", torn.substr(0, torn.size() / 2));
    host.Add("empty.kzp", std::string());
    host.Add("wrong.kzp", {{"before", "stays"}, wrong, {"after", "absent"}});
    host.Add("lib/wrong.so", std::string("old"));
    fs::create_symlink("/nonexistent", host.File("unreadable.kzp"));
    host.Add("shouting.KZP", {{"shouted", "x"}});
    host.Add(".hidden.kzp", {{"hidden", "x"}});
    fs::create_directory(host.File("directory.kzp"));
    host.Add("Agent-Core-x.kzp", {{"core", "x"}});
    host.Add("Agent-Core-y.kzp.done", "x");
    host.Add("Agent-Core", "x");
    host.Add("agent-core-z", "stays");
    host.Add("Agent-Core-directory/x", "stays");

    host.Add(good + ".kzu", {{"both", "x"},
                             {"missing", "x"},
                             {"gone/inside", "x"},
                             ZipDirectory("gone/"),
                             {"agent-core-q", "x"}});
    host.Add(old + ".kzu", {{"lib/old.so", "x"}});
    host.Add("evil.kzu", {{"agent-core-z", "x"}, {"../escaped", "x"}});
    fs::create_symlink("/nonexistent", host.File("unreadable.kzu"));
    host.Add("both", "removed first");
    host.Add("gone/inside", "removed");
    host.Add("lib/old.so", std::string("removed"));

    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{"5105 5 Old|" + old + "|@/" + old + ".kzu",
                     "5105 5 Widget|" + good + "|@/" + good + ".kzu",
                     "5106 2 evil|evil|@/evil.kzu",
                     "5106 2 unreadable|unreadable|@/unreadable.kzu",
                     "5101 5 B|B|@/B.kzp", "5102 2 |Plugin--x|@/Plugin--x.kzp",
                     "5102 2 Old|" + old + "|@/" + old + ".kzp",
                     "5101 5 Widget|" + good + "|@/" + good + ".kzp",
                     "5101 5 a|a|@/a.kzp", "5102 2 empty|empty|@/empty.kzp",
                     "5102 2 torn|torn|@/torn.kzp",
                     "5102 2 unreadable|unreadable|@/unreadable.kzp",
                     "5102 2 wrong|wrong|@/wrong.kzp"}));
    EXPECT_EQ(host.Heartbeat(), "true");

    const Lines tree = {".hidden.kzp",
                        "Agent-Core-directory/",
                        "Agent-Core-directory/x",
                        "B.kzp.done",
                        "Plugin--x.kzp",
                        old + ".kzp",
                        good + ".kzp.done",
                        "a",
                        "a.kzp.done",
                        "agent-core-z",
                        "b",
                        "before",
                        "both",
                        "directory.kzp/",
                        "empty.kzp",
                        "evil.kzu",
                        "gone/",
                        "shouting.KZP",
                        "torn.kzp",
                        "unreadable.kzp",
                        "unreadable.kzu",
                        "wrong.kzp"};
    EXPECT_EQ(host.Tree(), tree);
    EXPECT_EQ(ReadFile(host.File("both")), "installed");
    EXPECT_EQ(ReadFile(host.File("lib/widget.so")), "widget");
    EXPECT_EQ(ReadFile(host.File("lib/wrong.so")), "old");
    EXPECT_FALSE(FileExists(host.File("lib/old.so")));
    EXPECT_FALSE(FileExists(host.File("../escaped")));
    EXPECT_EQ(ReadFile(host.File(good + ".kzp.done")).substr(0, 2), "PK");

    // What was refused is tried again; what was done is left alone.
    const std::string escapes =
        "entry '../escaped': its name leads out of its directory";
    const std::string mismatch =
        ".kzp' does not match KZA core version, not installing";
    const std::string noDirectory = "no zip directory at its end: truncated or "
                                    "not a zip archive";
    host.Run();
    EXPECT_EQ(
        host.Events(),
        (Lines{"5106 2 evil|evil|@/evil.kzu",
               "5106 2 unreadable|unreadable|@/unreadable.kzu",
               "5102 2 |Plugin--x|@/Plugin--x.kzp",
               "5102 2 Old|" + old + "|@/" + old + ".kzp",
               "5102 2 empty|empty|@/empty.kzp", "5102 2 torn|torn|@/torn.kzp",
               "5102 2 unreadable|unreadable|@/unreadable.kzp",
               "5102 2 wrong|wrong|@/wrong.kzp"}));
    EXPECT_EQ(host.Heartbeat(), "true");
    EXPECT_EQ(host.Tree(), tree);
    EXPECT_EQ(host.Log(),
              (Lines{"TRACE Removing files from @/evil.kzu",
                     Refusal("evil.kzu", escapes),
                     "WARNING Plugin file '@/unreadable.kzu' isn't readable",
                     "TRACE Extracting files from @/Plugin--x.kzp",
                     Refusal("Plugin--x.kzp", escapes),
                     "WARNING Plugin file '@/" + old + mismatch,
                     "TRACE Extracting files from @/empty.kzp",
                     Refusal("empty.kzp", "the file is empty"),
                     "TRACE Extracting files from @/torn.kzp",
                     Refusal("torn.kzp", noDirectory),
                     "WARNING Plugin file '@/unreadable.kzp' isn't readable",
                     "TRACE Extracting files from @/wrong.kzp",
                     "TRACE   extracting: before (5 bytes)",
                     "TRACE   extracting: lib/wrong.so (3 bytes)",
                     Refusal("wrong.kzp",
                             "entry 'lib/wrong.so': its checksum is wrong")}));
}

TEST(Packages, TheTraceFollowsEveryStep)
{
    CPackageHost host;
    host.Add("Plugin-One-1.kzu", {{"x", "12345"}, {"lib/y", "1"}});
    host.Add("Plugin-Two-2.kzp", {ZipDirectory("lib/"), {"lib/y", "12"}});
    host.Run();
    EXPECT_EQ(host.Log(),
              (Lines{"TRACE Removing files from @/Plugin-One-1.kzu",
                     "TRACE   removing: x (5 bytes)",
                     "TRACE   removing: lib/y (1 bytes)",
                     Success("removed", "Plugin-One-1.kzu"),
                     "TRACE Extracting files from @/Plugin-Two-2.kzp",
                     "TRACE   extracting: lib (0 bytes)",
                     "TRACE   extracting: lib/y (2 bytes)",
                     Success("extracted", "Plugin-Two-2.kzp")}));
    EXPECT_EQ(host.Tree(), Lines{"Plugin-Two-2.kzp.done"});
}

TEST(Packages, WithoutAnyNothingIsReported)
{
    CPackageHost host;
    host.Add("Agent-Core-x.kzp", "swept all the same");
    host.Add("a.kzp.done", "done");
    host.Run();
    EXPECT_EQ(host.Events(), Lines{});
    EXPECT_EQ(host.Heartbeat(), "nil");
    EXPECT_EQ(host.Log(), Lines{});
    EXPECT_EQ(host.Tree(), Lines{"a.kzp.done"});
    EXPECT_FALSE(FileExists(host.File("work/events.db")));
}

TEST(Packages, OnlyRemovalAsksForAHeartbeatToo)
{
    CPackageHost host;
    host.Add("x.kzu", {{"nothing", ""}});
    host.Run();
    EXPECT_EQ(host.Events(), Lines{"5105 5 x|x|@/x.kzu"});
    EXPECT_EQ(host.Heartbeat(), "true");
    EXPECT_EQ(host.Tree(), Lines{});
}

TEST(Packages, WithoutTheSwitchNothingIsTouched)
{
    const CHost host(false);
    const std::string package = MakeZip({{"x", "y"}});
    WriteFile(host.File("a.kzp"), package);
    WriteFile(host.File("a.kzu"), package);
    WriteFile(host.File("Agent-Core-x"), "x");
    const SProcessResult result = host.RunTool(
        "tool", "return { main = function() print(dom:Get('kza.HeartbeatNow'), "
                "#dom:AgentEvents()) end }");
    EXPECT_EQ(result.out, "nil\t0\n") << result.err;
    EXPECT_EQ(ReadFile(host.File("a.kzp")), package);
    EXPECT_EQ(ReadFile(host.File("a.kzu")), package);
    EXPECT_TRUE(FileExists(host.File("Agent-Core-x")));
}

TEST(Packages, TheRunningAgentCanBeReplaced)
{
    CPackageHost host;
    SZipFile program{"kz_agent", ReadFile(host.File("kz_agent")) + "new"};
    program.mode = 0100755;
    const SZipFile library{"lib/libkza_core.so",
                           ReadFile(host.File("lib/libkza_core.so")) + "new"};
    host.Add("Agent.kzp", {program, library});
    host.Run();
    EXPECT_EQ(host.Events(), Lines{"5101 5 Agent|Agent|@/Agent.kzp"});
    EXPECT_TRUE(ReadFile(host.File("kz_agent")) == program.content);
    EXPECT_TRUE(ReadFile(host.File("lib/libkza_core.so")) == library.content);

    host.Run(); // the new ones
    EXPECT_EQ(host.Heartbeat(), "nil");
}

TEST(Packages, APackageThatCannotBeMarkedCountsAsInstalled)
{
    CPackageHost host;
    host.Add("x.kzp", {{"x", "installed"}});
    host.Add("x.kzp.done/in the way", "x");
    host.Run();
    EXPECT_EQ(host.Events(), Lines{"5101 5 x|x|@/x.kzp"});
    ASSERT_FALSE(host.Log().empty());
    EXPECT_EQ(host.Log().back(),
              "ERROR Unable to delete @/x.kzp (error 21: Is a directory)");
    EXPECT_EQ(ReadFile(host.File("x")), "installed");
    EXPECT_TRUE(FileExists(host.File("x.kzp")));
    host.Run();
    EXPECT_EQ(host.Events(), Lines{"5101 5 x|x|@/x.kzp"});
}

TEST(Packages, ARemovalPackageThatCannotBeDeletedCountsAsApplied)
{
    CPackageHost host;
    host.Add("x.kzu", {{"x", ""}});
    host.Add("x", "removed");
    SProcessOptions options;
    const std::string package = host.File("x.kzu");
    options.inChild = [package]
    {
        // What is mounted cannot be deleted, not even by the superuser.
        EnterMountNamespace();
        mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr);
    };
    host.Run(options);
    EXPECT_EQ(host.Events(), Lines{"5105 5 x|x|@/x.kzu"});
    ASSERT_FALSE(host.Log().empty());
    EXPECT_EQ(host.Log().back(), "ERROR Unable to delete @/x.kzu (error 16: "
                                 "Device or resource busy)");
    EXPECT_EQ(host.Tree(), Lines{"x.kzu"});
}

TEST(Packages, RemovalGoesNoFurtherThanTheDirectory)
{
    CPackageHost host;
    const CTempDir outside;
    WriteFile(outside.File("secret"), "untouched");
    fs::create_directory_symlink(outside.Path(), host.File("out"));
    fs::create_symlink(outside.File("secret"), host.File("link"));
    host.Add("a.kzu", {{"out/secret", ""}});
    host.Add("b.kzu", {{"link", ""}});
    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{"5106 2 a|a|@/a.kzu", "5105 5 b|b|@/b.kzu"}));
    EXPECT_EQ(ReadFile(outside.File("secret")), "untouched");
    EXPECT_EQ(host.Tree(), (Lines{"a.kzu", "out"})) << "the link itself goes";
}

TEST(Packages, RemovalLeavesWhatCannotBeRemoved)
{
    CPackageHost host;
    host.Add("x.kzu", {{"directory", ""}, {"file/below", ""}, {"last", ""}});
    host.Add("directory/inside", "stays");
    host.Add("file", "stays");
    host.Add("last", "removed");
    host.Run();
    EXPECT_EQ(host.Events(), Lines{"5105 5 x|x|@/x.kzu"});
    EXPECT_EQ(host.Tree(), (Lines{"directory/", "directory/inside", "file"}));
}

TEST(Packages, ADamagedEventDatabaseDoesNotStopThem)
{
    CPackageHost host;
    host.Add("work/events.db", std::string(9000, 'x'));
    host.Add("a.kzp", {{"a", "a"}});
    host.Add("b.kzp", {{"b", "b"}});
    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{"5101 5 a|a|@/a.kzp", "5101 5 b|b|@/b.kzp"}));
    EXPECT_EQ(host.Tree(), (Lines{"a", "a.kzp.done", "b", "b.kzp.done"}));
    int errors = 0;
    for (const std::string& line : host.Log())
        errors += line.rfind("ERROR", 0) == 0 ? 1 : 0;
    EXPECT_EQ(errors, 2) << "the event, and what became of the database";
}

} // namespace
