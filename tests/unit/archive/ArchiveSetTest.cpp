// SPDX-License-Identifier: Apache-2.0
//
// Which of many archives a name is found in.

#include "archive/ArchiveSet.h"

#include "support/CollectedLog.h"
#include "support/Spoiled.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/wfstream.h>
#include <wx/zipstrm.h>

#include <sys/stat.h>

#include <filesystem>
#include <utility>

using namespace KzaCore;
using TestSupport::CTempDir;

namespace
{

using Entries = std::vector<std::pair<std::string, std::string>>;

// Replaces or makes an archive; a new file, as an installation would.
std::string Make(const CTempDir& place,
                 const std::string& name,
                 const Entries& entries)
{
    std::string path = place.File(name);
    {
        wxFileOutputStream file(path + ".new");
        wxZipOutputStream zip(file);
        for (const auto& [entry, content] : entries)
        {
            zip.PutNextEntry(entry);
            zip.Write(content.data(), content.size());
        }
    }
    EXPECT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
    return path;
}

// The content under the first of the names, "missing" or "broken".
std::string Read(CArchiveSet& set, const std::vector<std::string>& names)
{
    std::string bytes;
    std::string place;
    std::string error;
    switch (set.Read(names, bytes, place, error))
    {
    case CArchiveSet::EResult::Found:
        return bytes;
    case CArchiveSet::EResult::Missing:
        return "missing";
    case CArchiveSet::EResult::Broken:
        break;
    }
    return "broken";
}

} // namespace

TEST(ArchiveSet, FirstArchiveWins)
{
    const CTempDir place;
    const std::string one = Make(place, "one", {{"a", "1"}});
    const std::string two = Make(place, "two", {{"a", "2"}, {"b", "2"}});
    CArchiveSet set;
    EXPECT_EQ(Read(set, {"a"}), "missing");
    set.SetPaths(one + ";" + two);
    EXPECT_EQ(Read(set, {"a"}), "1");
    EXPECT_EQ(Read(set, {"b"}), "2");
    EXPECT_EQ(Read(set, {"c"}), "missing");
    set.SetPaths(two + ";" + one);
    EXPECT_EQ(Read(set, {"a"}), "2");
    set.SetPaths("");
    EXPECT_EQ(Read(set, {"a"}), "missing");
}

TEST(ArchiveSet, AllNamesAreTriedInOneArchiveFirst)
{
    const CTempDir place;
    const std::string one = Make(place, "one", {{"a/init.lua", "1"}});
    const std::string two =
        Make(place, "two", {{"a.lua", "2"}, {"a/init.lua", "2"}});
    CArchiveSet set;
    set.SetPaths(one + ";" + two);
    EXPECT_EQ(Read(set, {"a.lua", "a/init.lua"}), "1");
    set.SetPaths(two);
    EXPECT_EQ(Read(set, {"a.lua", "a/init.lua"}), "2");
}

TEST(ArchiveSet, EveryOneOfManyArchivesIsLookedInto)
{
    constexpr int kCount = 150;
    const CTempDir place;
    std::string list;
    for (int i = 0; i < kCount; ++i)
    {
        const std::string n = std::to_string(i);
        list += Make(place, n, {{"own" + n, n}, {"common", n}}) + ";";
    }
    CArchiveSet set;
    set.SetPaths(list);
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_EQ(Read(set, {"common"}), "0");
        for (int i = 0; i < kCount; ++i)
            EXPECT_EQ(Read(set, {"own" + std::to_string(i)}),
                      std::to_string(i));
        EXPECT_EQ(Read(set, {"none"}), "missing");
    }
}

TEST(ArchiveSet, ReplacedArchiveIsNoticed)
{
    const CTempDir place;
    const std::string list = Make(place, "one", {{"a", "old"}}) + ";" +
                             Make(place, "two", {{"b", "old"}});
    CArchiveSet set;
    set.SetPaths(list);
    EXPECT_EQ(Read(set, {"a"}), "old");
    EXPECT_EQ(Read(set, {"b"}), "old");
    Make(place, "two", {{"b", "newer"}, {"c", "newer"}});
    EXPECT_EQ(Read(set, {"b"}), "newer");
    EXPECT_EQ(Read(set, {"c"}), "newer");
    Make(place, "one", {{"d", "newest"}});
    EXPECT_EQ(Read(set, {"a"}), "missing");
    EXPECT_EQ(Read(set, {"d"}), "newest");
}

TEST(ArchiveSet, ArchiveThatAppearsLaterIsUsed)
{
    const CTempDir place;
    CArchiveSet set;
    set.SetPaths(place.File("one"));
    EXPECT_EQ(Read(set, {"a"}), "missing");
    Make(place, "one", {{"a", "1"}});
    EXPECT_EQ(Read(set, {"a"}), "1");
}

TEST(ArchiveSet, BrokenArchiveListedTwiceIsWarnedOfOnce)
{
    const CTempDir place;
    const std::string broken = place.File("broken");
    TestSupport::WriteFile(broken, "no archive");
    const std::string good = Make(place, "good", {{"a", "1"}});
    const TestSupport::CCollectedLog log;
    CArchiveSet set;
    set.SetPaths(broken + ";" + good + ";" + broken);
    EXPECT_EQ(Read(set, {"a"}), "1");
    EXPECT_EQ(Read(set, {"b"}), "missing");
    ASSERT_EQ(log.m_texts.size(), 1U);
    EXPECT_EQ(log.m_texts[0].find("Archive '" + broken + "' is skipped: "), 0U);
    EXPECT_EQ(set.DescribeMiss({"b"}).find(broken),
              set.DescribeMiss({"b"}).rfind(broken));
}

// A file name with a ";" in it makes two items; the second one could name a
// file in the current directory.
TEST(ArchiveSet, ARelativePathIsSkippedWithOneWarning)
{
    const CTempDir place;
    Make(place, "one", {{"a", "1"}});
    const std::string relative =
        std::filesystem::relative(place.File("one")).string();
    const std::string good = Make(place, "good", {{"a", "2"}});
    const TestSupport::CCollectedLog log;
    CArchiveSet set;
    set.SetPaths(relative + ";" + good);
    EXPECT_EQ(Read(set, {"a"}), "2");
    EXPECT_EQ(Read(set, {"b"}), "missing");
    set.SetPaths(good + ";" + relative);
    EXPECT_EQ(Read(set, {"b"}), "missing");
    ASSERT_EQ(log.m_texts.size(), 1U);
    EXPECT_EQ(log.m_texts[0], "Archive '" + relative +
                                  "' is skipped: its path is not absolute");
    EXPECT_EQ(set.DescribeMiss({"b"}),
              "\n\tno file '" + good + "/b'\n\tno usable archive '" + relative +
                  "': its path is not absolute");
}

TEST(ArchiveSet, MissNamesEveryPlace)
{
    const CTempDir place;
    const std::string one = Make(place, "one", {{"a", "1"}});
    const std::string none = place.File("none");
    CArchiveSet set;
    set.SetPaths(one + ";" + none);
    EXPECT_EQ(Read(set, {"x.lua", "x/init.lua"}), "missing");
    EXPECT_EQ(set.DescribeMiss({"x.lua", "x/init.lua"}),
              "\n\tno file '" + one + "/x.lua'" + "\n\tno file '" + one +
                  "/x/init.lua'" + "\n\tno usable archive '" + none +
                  "': cannot be opened: No such file or directory");
}

TEST(ArchiveSet, WhatOthersCanChangeIsSkippedUntilItIsMended)
{
    const CTempDir place;
    const std::string one = Make(place, "one", {{"a", "1"}});
    const std::string two = Make(place, "two", {{"a", "2"}});
    ASSERT_EQ(chmod(one.c_str(), 0666), 0);
    const std::string text = TestSupport::ChangeableText(one);
    const TestSupport::CCollectedLog log;
    CArchiveSet set;
    set.SetPaths(one + ";" + two);
    set.SetOwnerRule(EOwnerRule::Refuse);
    EXPECT_EQ(Read(set, {"a"}), "2");
    EXPECT_EQ(Read(set, {"b"}), "missing");
    EXPECT_EQ(set.DescribeMiss({"b"}), "\n\tno usable archive '" + one +
                                           "': " + text + "\n\tno file '" +
                                           two + "/b'");
    EXPECT_EQ(log.m_texts,
              (std::vector<wxString>{text, "Archive '" + one +
                                               "' is skipped: " + text}));
    EXPECT_EQ(log.m_levels,
              (std::vector<wxLogLevel>{wxLOG_Error, wxLOG_Warning}));
    ASSERT_EQ(chmod(one.c_str(), 0644), 0);
    EXPECT_EQ(Read(set, {"b"}), "missing") << "which looks at all of them";
    EXPECT_EQ(Read(set, {"a"}), "1");
}
