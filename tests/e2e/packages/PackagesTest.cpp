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

std::string Success(const std::string& verb, const std::string& package)
{
    return "TRACE Successfully " + verb + " files for plugin '" +
           package.substr(0, package.find('.')) + "'. Deleting '@/" + package +
           "'";
}

constexpr char kWidget[] = "Plugin-Widget-sol11-12.0.0-101.x86_64.kzp";
constexpr char kOld[] = "Plugin-Old-sol11-11.0.0-50.x86_64.kzp";

// The package that takes another away.
std::string RemovalOf(std::string package)
{
    return package.replace(package.rfind('.'), std::string::npos, ".kzu");
}

TEST(Packages, GoodOnesAreInstalledInTheOrderOfTheirNames)
{
    CPackageHost host;
    host.Add(kWidget, {ZipDirectory("lib/"), {"lib/widget.so", "widget"}});
    host.Add("a.kzp", {{"last", "a"}, {"a", "a"}});
    host.Add("B.kzp", {{"last", "B"}});
    host.Run();
    EXPECT_EQ(host.Events(), (Lines{Event(kInstalled, "B.kzp"),
                                    Event(kInstalled, kWidget, "Widget"),
                                    Event(kInstalled, "a.kzp")}));
    EXPECT_EQ(host.Heartbeat(), "true");
    EXPECT_EQ(host.Problems(), Lines{});
    EXPECT_EQ(ReadFile(host.File("last")), "a");
    EXPECT_EQ(ReadFile(host.File("lib/widget.so")), "widget");
    EXPECT_EQ(host.Tree(), (Lines{"B.kzp.done", std::string(kWidget) + ".done",
                                  "a", "a.kzp.done", "last"}));
}

TEST(Packages, AnInstalledOneReplacesTheOneBeforeIt)
{
    CPackageHost host;
    host.Add("x.kzp.done", "from an earlier time");
    host.Add("x", "from an earlier time");
    const std::string package = MakeZip({{"x", "new"}});
    host.Add("x.kzp", package);
    host.Run();
    EXPECT_EQ(host.Events(), Lines{Event(kInstalled, "x.kzp")});
    EXPECT_EQ(ReadFile(host.File("x.kzp.done")), package);
    EXPECT_EQ(ReadFile(host.File("x")), "new");

    host.Run(); // what is done is left alone
    EXPECT_EQ(host.Events(), Lines{});
    EXPECT_EQ(host.Heartbeat(), "nil");
    EXPECT_EQ(host.Tree(), (Lines{"x", "x.kzp.done"}));
}

TEST(Packages, RefusedOnesStayAndAreTriedAgain)
{
    CPackageHost host;
    const std::string torn = MakeZip({{"torn", Noise(1000)}});
    host.Add(kOld, {{"old", "old"}});
    host.Add("Plugin--x.kzp", {{"../escaped", "evil"}});
    host.Add("empty.kzp", std::string());
    host.Add("torn.kzp", torn.substr(0, torn.size() / 2));
    fs::create_symlink("/nonexistent", host.File("unreadable.kzp"));
    for (const char* run : {"first", "second"})
    {
        SCOPED_TRACE(run);
        host.Run();
        EXPECT_EQ(host.Events(),
                  (Lines{Event(kNotInstalled, "Plugin--x.kzp", ""),
                         Event(kNotInstalled, kOld, "Old"),
                         Event(kNotInstalled, "empty.kzp"),
                         Event(kNotInstalled, "torn.kzp"),
                         Event(kNotInstalled, "unreadable.kzp")}));
        EXPECT_EQ(host.Heartbeat(), "true");
        EXPECT_EQ(
            host.Problems(),
            (Lines{Refusal("Plugin--x.kzp",
                           "entry '../escaped': its name leads "
                           "out of its directory"),
                   "WARNING Plugin file '@/" + std::string(kOld) +
                       "' does not match KZA core version, not installing",
                   Refusal("empty.kzp", "the file is empty"),
                   Refusal("torn.kzp", "no zip directory at its end: truncated "
                                       "or not a zip archive"),
                   "WARNING Plugin file '@/unreadable.kzp' isn't readable"}));
        EXPECT_EQ(host.Tree(), (Lines{"Plugin--x.kzp", kOld, "empty.kzp",
                                      "torn.kzp", "unreadable.kzp"}));
        EXPECT_FALSE(FileExists(host.File("../escaped")));
    }
}

TEST(Packages, ADamagedEntryEndsItsPackageAndNoOther)
{
    CPackageHost host;
    CZipInput wrong{"wrong", "new"};
    wrong.crc = 1;
    host.Add("a.kzp", {{"before", "stays"}, wrong, {"after", "absent"}});
    host.Add("b.kzp", {{"b", "b"}});
    host.Add("wrong", std::string("old"));
    host.Run();
    EXPECT_EQ(host.Events(), (Lines{Event(kNotInstalled, "a.kzp"),
                                    Event(kInstalled, "b.kzp")}));
    EXPECT_EQ(host.Problems(),
              Lines{Refusal("a.kzp", "entry 'wrong': its checksum is wrong")});
    EXPECT_EQ(host.Tree(),
              (Lines{"a.kzp", "b", "b.kzp.done", "before", "wrong"}));
    EXPECT_EQ(ReadFile(host.File("wrong")), "old");
}

TEST(Packages, FilesThatAreNoPackagesAreLeftAlone)
{
    CPackageHost host;
    const Lines tree = {".hidden.kzp", "directory.kzp/", "shouting.KZP", "sub/",
                        "sub/deeper.kzp"};
    fs::create_directory(host.File("directory.kzp"));
    for (const char* name : {".hidden.kzp", "shouting.KZP", "sub/deeper.kzp"})
        host.Add(name, {{"x", "x"}});
    host.Run();
    EXPECT_EQ(host.Events(), Lines{});
    EXPECT_EQ(host.Log(), Lines{});
    EXPECT_EQ(host.Tree(), tree);
}

TEST(Packages, LeftoversOfTheCoreAreDeletedFirst)
{
    CPackageHost host;
    host.Add("Agent-Core-x.kzp", {{"core", "x"}});
    host.Add("Agent-Core-y.kzp.done", "x");
    host.Add("Agent-Core", "x");
    host.Add("agent-core-z", "stays");
    host.Add("Agent-Core-directory/x", "stays");
    host.Run();
    EXPECT_EQ(host.Events(), Lines{});
    EXPECT_EQ(host.Tree(), (Lines{"Agent-Core-directory/",
                                  "Agent-Core-directory/x", "agent-core-z"}));
}

TEST(Packages, RemovalDeletesTheFilesOfTheNames)
{
    CPackageHost host;
    host.Add(RemovalOf(kOld), {{"old", ""}, {"missing", ""}});
    host.Add("x.kzu", {{"gone/inside", ""}, ZipDirectory("gone/")});
    host.Add("old", "removed");
    host.Add("gone/inside", "removed");
    host.Add("kept", "stays");
    host.Run();
    EXPECT_EQ(host.Events(), (Lines{Event(kRemoved, RemovalOf(kOld), "Old"),
                                    Event(kRemoved, "x.kzu")}));
    EXPECT_EQ(host.Problems(), Lines{});
    EXPECT_EQ(host.Tree(), (Lines{"gone/", "kept"}));
}

TEST(Packages, RemovalLooksAtNamesAlone)
{
    CPackageHost host;
    CZipInput encrypted{"encrypted", "secret"};
    encrypted.flags = 1;
    CZipInput other{"other", "packed by a better method"};
    other.method = 14;
    CZipInput link{"link", "target"};
    link.mode = 0120777;
    host.Add("x.kzu", {encrypted, other, link, {"twice", "1"}, {"twice", "2"}});
    for (const char* name : {"encrypted", "other", "link", "twice"})
        host.Add(name, std::string("removed"));
    host.Run();
    EXPECT_EQ(host.Events(), Lines{Event(kRemoved, "x.kzu")});
    EXPECT_EQ(host.Problems(), Lines{});
    EXPECT_EQ(host.Tree(), Lines{});
}

TEST(Packages, RefusedRemovalsStayAndTouchNothing)
{
    CPackageHost host;
    host.Add("evil.kzu", {{"kept", ""}, {"../escaped", ""}});
    fs::create_symlink("/nonexistent", host.File("unreadable.kzu"));
    host.Add("kept", "stays");
    host.Run();
    EXPECT_EQ(host.Events(), (Lines{Event(kNotRemoved, "evil.kzu"),
                                    Event(kNotRemoved, "unreadable.kzu")}));
    EXPECT_EQ(
        host.Problems(),
        (Lines{Refusal("evil.kzu", "entry '../escaped': its name leads out of "
                                   "its directory"),
               "WARNING Plugin file '@/unreadable.kzu' isn't readable"}));
    EXPECT_EQ(host.Tree(), (Lines{"evil.kzu", "kept", "unreadable.kzu"}));
}

TEST(Packages, RemovalComesBeforeInstallation)
{
    CPackageHost host;
    host.Add(kWidget, {{"both", "installed"}});
    host.Add(RemovalOf(kWidget), {{"both", ""}});
    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{Event(kRemoved, RemovalOf(kWidget), "Widget"),
                     Event(kInstalled, kWidget, "Widget")}));
    EXPECT_EQ(ReadFile(host.File("both")), "installed");
    EXPECT_EQ(host.Tree(), (Lines{std::string(kWidget) + ".done", "both"}));
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

TEST(Packages, WithoutPackagesNothingIsReported)
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
    EXPECT_EQ(host.Events(), Lines{Event(kRemoved, "x.kzu")});
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
    const CProcessResult result = host.RunTool(
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
    CZipInput program{"kz_agent", ReadFile(host.File("kz_agent")) + "new"};
    program.mode = 0100755;
    const CZipInput library{"lib/libkza_core.so",
                            ReadFile(host.File("lib/libkza_core.so")) + "new"};
    host.Add("Agent.kzp", {program, library});
    host.Run();
    EXPECT_EQ(host.Events(), Lines{Event(kInstalled, "Agent.kzp")});
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
    EXPECT_EQ(host.Events(), Lines{Event(kInstalled, "x.kzp")});
    ASSERT_FALSE(host.Log().empty());
    EXPECT_EQ(host.Log().back(),
              "ERROR Unable to delete @/x.kzp (error 21: Is a directory)");
    EXPECT_EQ(ReadFile(host.File("x")), "installed");
    EXPECT_TRUE(FileExists(host.File("x.kzp")));
    host.Run();
    EXPECT_EQ(host.Events(), Lines{Event(kInstalled, "x.kzp")});
}

TEST(Packages, ARemovalPackageThatCannotBeDeletedCountsAsApplied)
{
    CPackageHost host;
    host.Add("x.kzu", {{"x", ""}});
    host.Add("x", "removed");
    CProcessOptions options;
    const std::string package = host.File("x.kzu");
    options.inChild = [package]
    {
        // What is mounted cannot be deleted, not even by the superuser.
        EnterMountNamespace();
        mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr);
    };
    host.Run(options);
    EXPECT_EQ(host.Events(), Lines{Event(kRemoved, "x.kzu")});
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
              (Lines{Event(kNotRemoved, "a.kzu"), Event(kRemoved, "b.kzu")}));
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
    EXPECT_EQ(host.Events(), Lines{Event(kRemoved, "x.kzu")});
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
              (Lines{Event(kInstalled, "a.kzp"), Event(kInstalled, "b.kzp")}));
    EXPECT_EQ(host.Tree(), (Lines{"a", "a.kzp.done", "b", "b.kzp.done"}));
    int errors = 0;
    for (const std::string& line : host.Log())
        errors += line.rfind("ERROR", 0) == 0 ? 1 : 0;
    EXPECT_EQ(errors, 2) << "the event, and what became of the database";
}

} // namespace
