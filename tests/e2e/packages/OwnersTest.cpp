// SPDX-License-Identifier: Apache-2.0
//
// Packages, archives and side files that others can change.

#include "e2e/packages/Packages.h"

#include "support/Spoiled.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

using Lines = std::vector<std::string>;

const Lines kStrict = {"--domain_var", "strict.owner=1"};

// --- Packages ---------------------------------------------------------------

// What the agent says of a package beside it, the directory shown as "@".
std::string Shown(const CPackageHost& host, const std::string& name)
{
    std::string text = ChangeableText(host.File(name));
    return text.replace(1, host.Bin().size(), "@");
}

TEST(PackageOwners, AChangeablePackageIsWarnedOf)
{
    CPackageHost host;
    host.Add("a.kzp", {{"a", "x"}});
    host.Add("b.kzu", {{"b", ""}});
    host.Add("c.kzp", {{"c", "x"}});
    host.Add("b", "to be removed");
    chmod(host.File("a.kzp").c_str(), 0664);
    chmod(host.File("b.kzu").c_str(), 0646);
    const std::string first = Shown(host, "a.kzp");
    const std::string second = Shown(host, "b.kzu");
    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{Event(kRemoved, "b.kzu"), Event(kInstalled, "a.kzp"),
                     Event(kInstalled, "c.kzp")}));
    EXPECT_EQ(host.Problems(),
              (Lines{"WARNING " + second, "WARNING " + first}));
    EXPECT_EQ(host.Tree(), (Lines{"a", "a.kzp.done", "c", "c.kzp.done"}));
}

TEST(PackageOwners, AStrictAgentTakesItForOneThatCannotBeUnpacked)
{
    CPackageHost host;
    host.SetOptions(kStrict);
    host.Add("a.kzp", {{"a", "x"}});
    host.Add("b.kzu", {{"b", ""}});
    host.Add("c.kzp", {{"c", "x"}});
    host.Add("b", "stays");
    chmod(host.File("a.kzp").c_str(), 0664);
    chmod(host.File("b.kzu").c_str(), 0646);
    const std::string first = Shown(host, "a.kzp");
    const std::string second = Shown(host, "b.kzu");
    host.Run();
    EXPECT_EQ(host.Events(),
              (Lines{Event(kNotRemoved, "b.kzu"), Event(kNotInstalled, "a.kzp"),
                     Event(kInstalled, "c.kzp")}));
    EXPECT_EQ(host.Problems(),
              (Lines{"ERROR " + second, Refusal("b.kzu", second),
                     "ERROR " + first, Refusal("a.kzp", first)}));
    EXPECT_EQ(host.Tree(), (Lines{"a.kzp", "b", "b.kzu", "c", "c.kzp.done"}));
}

// What is in a package is not looked at before its owner is.
TEST(PackageOwners, TheOwnerComesBeforeTheContent)
{
    CPackageHost host;
    host.SetOptions(kStrict);
    host.Add("a.kzp", "no archive at all");
    const CSpoiled spoiled(host.File("a.kzp"));
    const std::string text = Shown(host, "a.kzp");
    host.Run();
    EXPECT_EQ(host.Problems(),
              (Lines{"ERROR " + text, Refusal("a.kzp", text)}));
}

TEST(PackageOwners, ALinkIsJudgedByWhatItLeadsTo)
{
    CPackageHost host;
    host.SetOptions(kStrict);
    const CTempDir shared;
    for (const char* name : {"a.kzp", "b.kzp"})
    {
        WriteFile(shared.File(name), MakeZip({{name[0] + std::string(), "x"}}));
        fs::create_symlink(shared.File(name), host.File(name));
    }
    {
        const CSpoiled spoiled(shared.File("b.kzp"), 0666);
        host.Run();
        EXPECT_EQ(host.Events(), (Lines{Event(kInstalled, "a.kzp"),
                                        Event(kNotInstalled, "b.kzp")}));
        EXPECT_EQ(host.Problems()[0],
                  "ERROR " + ChangeableText(shared.File("b.kzp")));
    }
    const CSpoiled spoiled(shared.Path(), 01777);
    host.Run();
    EXPECT_EQ(host.Events(), Lines{Event(kNotInstalled, "b.kzp")});
    EXPECT_EQ(host.Problems()[0], "ERROR " + ChangeableText(shared.Path()));
}

// --- Archives ---------------------------------------------------------------

constexpr char kShow[] = "return {main = function() "
                         "print(dom:Get('app.lua.zippath')) end}";

// Archives in each place where they are looked for.
class CArchiveHost
{
public:
    CArchiveHost()
    {
        for (const char* name : {"kza_core/show.kze", "kza_core/kza.kze",
                                 "named/n.kze", "ext/e.kze", "ext/f.kze"})
            WriteFile(m_host.File(name), MakeZip({{"x.lua", "return 1"}}));
        for (const char* name : {"ext/e.kze", "ext/f.kze"})
            WriteFile(m_host.File(name) + std::string(".version"),
                      "version: 12.0.0-1\n");
    }

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_host.File(name);
    }

    // Starts and keeps the search path and what the log says of owners.
    void Run(const Lines& options)
    {
        WriteFile(m_host.File("work/log/show.log"), "");
        Lines all = {"--zippath", File("named/n.kze"), "--extdir", File("ext")};
        all.insert(all.end(), options.begin(), options.end());
        const CProcessResult result = m_host.RunTool("show", kShow, all);
        EXPECT_EQ(result.status, 0) << result.err;
        m_path.clear();
        for (std::size_t at = 0; at < result.out.size();)
        {
            const std::size_t end = result.out.find_first_of(";\n", at);
            m_path.push_back(result.out.substr(at, end - at));
            at = end + 1;
        }
        m_complaints.clear();
        for (const std::string& record : m_host.Records("show"))
            if (record.rfind("WARNING", 0) == 0 ||
                record.rfind("ERROR", 0) == 0)
                m_complaints.push_back(record);
    }

    // The search path without some archives.
    [[nodiscard]] Lines PathWithout(const Lines& names) const
    {
        Lines path;
        for (const char* name : {"kza_core/show.kze", "kza_core/kza.kze",
                                 "named/n.kze", "ext/e.kze", "ext/f.kze"})
            if (std::find(names.begin(), names.end(), name) == names.end())
                path.push_back(File(name));
        return path;
    }

    Lines m_path;
    Lines m_complaints;

private:
    CHost m_host{false};
};

TEST(ArchiveOwners, GoodOnesAreListedByAStrictAgent)
{
    CArchiveHost host;
    host.Run(kStrict);
    EXPECT_EQ(host.m_path, host.PathWithout({}));
    EXPECT_EQ(host.m_complaints, Lines{});
}

TEST(ArchiveOwners, WhatOthersCanChangeIsWarnedOfOrPassedOver)
{
    CArchiveHost host;
    const struct
    {
        const char* changeable;
        Lines passedOver;
    } cases[] = {
        {"kza_core/show.kze", {"kza_core/show.kze"}},
        {"kza_core/kza.kze", {"kza_core/kza.kze"}},
        {"named/n.kze", {"named/n.kze"}},
        {"named", {"named/n.kze"}},
        {"ext/e.kze", {"ext/e.kze"}},
        {"ext/e.kze.version", {"ext/e.kze"}},
        {"ext", {"ext/e.kze", "ext/f.kze"}},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.changeable);
        const std::string path = host.File(test.changeable);
        for (const mode_t more : {0020, 0002, 01002})
        {
            const CSpoiled spoiled(path, more);
            host.Run({});
            EXPECT_EQ(host.m_path, host.PathWithout({}));
            EXPECT_EQ(host.m_complaints,
                      Lines{"WARNING kza: " + ChangeableText(path)});
        }
        const CSpoiled spoiled(path);
        host.Run(kStrict);
        EXPECT_EQ(host.m_path, host.PathWithout(test.passedOver));
        EXPECT_EQ(host.m_complaints,
                  Lines{"ERROR kza: " + ChangeableText(path)});
    }
}

// The search path may also come from a script, long after the start.
TEST(ArchiveOwners, AnArchiveIsJudgedWhenItIsOpened)
{
    const CHost host(false);
    const std::string archive = host.File("late.kze");
    WriteFile(archive, MakeZip({{"late.lua", "return 'late'"}}));
    const CSpoiled spoiled(archive, 0666);
    const std::string text = ChangeableText(archive);
    const std::string source = "return {main = function()\n"
                               "dom:Set('app.lua.zippath', '" +
                               archive +
                               "')\n"
                               "print(select(2, pcall(require, 'late'))) end}";
    EXPECT_EQ(host.RunTool("opens", source).out, "late\n");
    const std::string out = host.RunTool("opens", source, kStrict).out;
    EXPECT_NE(out.find("no usable archive '" + archive + "': " + text),
              std::string::npos)
        << out;
    const std::string log = host.Log("opens");
    EXPECT_NE(log.find("WARNING kza: " + text + "\n"), std::string::npos);
    EXPECT_NE(log.find("ERROR kza: " + text + "\n"), std::string::npos);
}

} // namespace
