// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Unzip.h"

#include "kza_core/PackageKeys.h"
#include "support/CollectedLog.h"
#include "support/InChild.h"
#include "support/Process.h"
#include "support/SigningKey.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>
#include <wx/filename.h>
#include <wx/zipstrm.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

using Names = std::vector<std::string>;

struct CCall
{
    wxString name;
    wxString path;
    long long size;
    bool isDirectory;
};

// What the callback was told and what it answers.
struct CWitness
{
    std::vector<CCall> calls;
    std::function<bool(const wxString& name)> answer;
};

bool WitnessCB(void* context, const wxZipEntry* entry, const wxString* path)
{
    auto& witness = *static_cast<CWitness*>(context);
    witness.calls.push_back(
        {entry->GetInternalName(), *path, entry->GetSize(), entry->IsDir()});
    return !witness.answer || witness.answer(entry->GetInternalName());
}

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

ino_t InodeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

class Unzip : public ::testing::Test
{
protected:
    Unzip()
    {
        fs::create_directory(m_dest);
        WriteFile(m_outside + "/secret", "untouched");
    }

    bool Run(const std::string& bytes)
    {
        WriteFile(m_archive, bytes);
        return KzaCore::Unzip(wxFileName(m_archive),
                              wxFileName(m_dest, wxEmptyString), WitnessCB,
                              &m_witness, m_options);
    }

    bool Run(const std::vector<CZipInput>& files)
    {
        return Run(MakeZip(files));
    }

    // Names under the destination, sorted, directories with a slash.
    [[nodiscard]] std::vector<std::string> Tree() const
    {
        std::vector<std::string> names;
        for (const auto& item : fs::recursive_directory_iterator(m_dest))
            names.push_back(
                item.path().lexically_relative(m_dest).string() +
                (fs::is_directory(item.symlink_status()) ? "/" : ""));
        std::sort(names.begin(), names.end());
        return names;
    }

    void ExpectWarning(const std::string& reason)
    {
        ASSERT_EQ(m_log.m_texts.size(), 1U);
        EXPECT_EQ(m_log.m_levels[0], wxLOG_Warning);
        EXPECT_EQ(m_log.m_texts[0],
                  "Unable to unpack '" + m_archive + "': " + reason);
        m_log.m_texts.clear();
        m_log.m_levels.clear();
    }

    // A refused archive has touched nothing.
    void ExpectRefused(const std::vector<CZipInput>& files,
                       const std::string& reason)
    {
        const auto before = Tree();
        m_witness.calls.clear();
        EXPECT_FALSE(Run(files));
        EXPECT_TRUE(m_witness.calls.empty());
        EXPECT_EQ(Tree(), before);
        EXPECT_EQ(ReadFile(m_outside + "/secret"), "untouched");
        ExpectWarning(reason);
    }

    CTempDir m_dir;
    std::string m_archive = m_dir.File("package.kzp");
    std::string m_dest = m_dir.File("bin");
    std::string m_outside = m_dir.File("outside");
    KzaCore::CUnzipOptions m_options;
    CWitness m_witness;
    CCollectedLog m_log;
};

TEST_F(Unzip, WritesWhatTheArchiveHolds)
{
    CZipInput stored{"stored", Noise(700000)};
    stored.deflate = false;
    const std::string large = Prose(9000000);
    const std::string noise = Noise(5000000);
    ASSERT_TRUE(
        Run(std::vector<CZipInput>{stored,
                                   {"lib/a/deflated", Prose(70000)},
                                   ZipDirectory("empty/"),
                                   {"nothing", ""},
                                   {"large", large},
                                   {"noise", noise},
                                   {"gr\xc3\xbc\xc3\x9f", "Gru\xc3\x9f"}}));
    EXPECT_EQ(Tree(),
              (Names{"empty/", "gr\xc3\xbc\xc3\x9f", "large", "lib/", "lib/a/",
                     "lib/a/deflated", "noise", "nothing", "stored"}));
    EXPECT_EQ(ReadFile(m_dest + "/stored"), stored.content);
    EXPECT_EQ(ReadFile(m_dest + "/lib/a/deflated"), Prose(70000));
    EXPECT_EQ(ReadFile(m_dest + "/nothing"), "");
    EXPECT_TRUE(ReadFile(m_dest + "/large") == large);
    EXPECT_TRUE(ReadFile(m_dest + "/noise") == noise);
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(Unzip, ReadsEveryFormOfSizes)
{
    CZipInput follow{"follow", Prose(6000000)};
    follow.sizesFollow = true;
    CZipInput wide{"wide", Prose(5000, 2)};
    wide.zip64 = true;
    CZipOptions options;
    options.zip64End = true;
    ASSERT_TRUE(Run(MakeZip({follow, wide}, options)));
    EXPECT_TRUE(ReadFile(m_dest + "/follow") == follow.content);
    EXPECT_EQ(ReadFile(m_dest + "/wide"), wide.content);
}

TEST_F(Unzip, ReadsWhatArchiversWrite)
{
    const std::string tree = m_dir.File("tree");
    WriteFile(tree + "/lib/gr\xc3\xbcn", Prose(100000));
    WriteFile(tree + "/program", Noise(50000));
    WriteFile(tree + "/empty/.keep", "");
    fs::remove(tree + "/empty/.keep");
    chmod((tree + "/program").c_str(), 0750);
    const Names expected = {"empty/", "lib/", "lib/gr\xc3\xbcn", "program"};
    const std::string here = "cd '" + tree + "' && ";
    for (const std::string& command :
         {here + "zip -qr '" + m_archive + "' .",
          here + "zip -qr - . | cat > '" + m_archive + "'", // sizes behind
          here + "zip -qr -fz '" + m_archive + "' .",       // zip64
          here + "zip -q0r '" + m_archive + "' .",
          here + "LC_ALL=C zip -qr '" + m_archive + "' .",
          here + "bsdtar --format zip -cf '" + m_archive + "' .",
          here + "LC_ALL=C.UTF-8 bsdtar --format zip -cf '" + m_archive +
              "' *"})
    {
        SCOPED_TRACE(command);
        fs::remove(m_archive);
        fs::remove_all(m_dest);
        ASSERT_EQ(std::system(command.c_str()), 0);
        ASSERT_TRUE(KzaCore::Unzip(wxFileName(m_archive),
                                   wxFileName(m_dest, wxEmptyString), WitnessCB,
                                   &m_witness))
            << m_log.m_texts.back();
        EXPECT_EQ(Tree(), expected);
        EXPECT_EQ(ReadFile(m_dest + "/lib/gr\xc3\xbcn"), Prose(100000));
        EXPECT_TRUE(ReadFile(m_dest + "/program") == Noise(50000));
        EXPECT_EQ(ModeOf(m_dest + "/program"), 0750U);
    }
}

// The archiver marks the entry as the pipe that its content came from.
TEST_F(Unzip, WhatAnArchiverReadFromAPipeIsAFile)
{
    const std::string command =
        "cd '" + m_dir.Path() + "' && echo text | zip -q '" + m_archive + "' -";
    ASSERT_EQ(std::system(command.c_str()), 0);
    ASSERT_TRUE(Run(ReadFile(m_archive)));
    EXPECT_EQ(ReadFile(m_dest + "/-"), "text\n");
    struct stat status = {};
    ASSERT_EQ(lstat((m_dest + "/-").c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
}

TEST_F(Unzip, AsksForEveryEntryInTheArchivesOrder)
{
    m_witness.answer = [](const wxString& name) { return name != "b/two"; };
    ASSERT_TRUE(Run(std::vector<CZipInput>{
        {"z", "12345"}, ZipDirectory("b/"), {"./b/two", "22"}, {"a", ""}}));
    ASSERT_EQ(m_witness.calls.size(), 4U);
    const struct
    {
        const char* name;
        const char* path;
        long long size;
        bool isDirectory;
    } expected[] = {
        {"z", "/z", 5, false},
        {"b", "/b", 0, true},
        {"b/two", "/b/two", 2, false},
        {"a", "/a", 0, false},
    };
    for (int i = 0; i < 4; ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(m_witness.calls[i].name, expected[i].name);
        EXPECT_EQ(m_witness.calls[i].path, m_dest + expected[i].path);
        EXPECT_EQ(m_witness.calls[i].size, expected[i].size);
        EXPECT_EQ(m_witness.calls[i].isDirectory, expected[i].isDirectory);
    }
    EXPECT_EQ(Tree(), (Names{"a", "b/", "z"}));
}

TEST_F(Unzip, WhatTheCallbackLeavesOutIsNotTouched)
{
    WriteFile(m_dest + "/old", "old");
    m_witness.answer = [](const wxString&) { return false; };
    ASSERT_TRUE(Run(std::vector<CZipInput>{
        {"old", "new"}, {"dir/x", "y"}, ZipDirectory("other/", 040777)}));
    EXPECT_EQ(Tree(), (Names{"old"}));
    EXPECT_EQ(ReadFile(m_dest + "/old"), "old");
}

TEST_F(Unzip, KeepsPermissionsOfTheOwnerAndToRead)
{
    const mode_t before = umask(077);
    CZipInput program{"program", "x"};
    program.mode = 0106755;
    CZipInput shared{"shared", "x"};
    shared.mode = 0100666;
    CZipInput all{"all", "x"};
    all.mode = 0107777;
    CZipInput unknown{"unknown", "x"};
    unknown.mode = 0;
    CZipInput dos{"dos", "x"};
    dos.mode = 0100777;
    dos.system = 0;
    const bool isUnpacked = Run(std::vector<CZipInput>{
        program, shared, all, unknown, dos, {"made/x", ""}});
    umask(before);
    ASSERT_TRUE(isUnpacked);
    EXPECT_EQ(ModeOf(m_dest + "/program"), 0755U);
    EXPECT_EQ(ModeOf(m_dest + "/shared"), 0644U);
    EXPECT_EQ(ModeOf(m_dest + "/all"), 0755U);
    EXPECT_EQ(ModeOf(m_dest + "/unknown"), 0600U);
    EXPECT_EQ(ModeOf(m_dest + "/dos"), 0600U);
    EXPECT_EQ(ModeOf(m_dest + "/made"), 0700U);
}

TEST_F(Unzip, DirectoriesThatItMakesGetTheirMode)
{
    ASSERT_TRUE(Run(std::vector<CZipInput>{ZipDirectory("open/", 043777),
                                           {"late/x", ""},
                                           ZipDirectory("late/", 040755)}));
    EXPECT_EQ(ModeOf(m_dest + "/open"), 0755U);
    EXPECT_EQ(ModeOf(m_dest + "/late"), 0755U);
}

TEST_F(Unzip, DirectoriesThatAreThereKeepTheirMode)
{
    fs::create_directories(m_dest + "/lib/deep");
    chmod((m_dest + "/lib").c_str(), 0710);
    chmod((m_dest + "/lib/deep").c_str(), 01770);
    ASSERT_TRUE(Run(std::vector<CZipInput>{ZipDirectory("lib/", 040777),
                                           {"lib/deep/x", "y"},
                                           ZipDirectory("lib/deep/", 040700)}));
    EXPECT_EQ(ModeOf(m_dest + "/lib"), 0710U);
    EXPECT_EQ(ModeOf(m_dest + "/lib/deep"), 01770U);
}

// The next call finds the directory there and leaves its mode alone.
TEST_F(Unzip, ANewDirectoryIsNotClosedInTheMeantime)
{
    mode_t seen = 0;
    m_witness.answer = [&](const wxString& name)
    {
        if (name == "open/x")
            seen = ModeOf(m_dest + "/open");
        return true;
    };
    ASSERT_TRUE(Run(
        std::vector<CZipInput>{ZipDirectory("open/", 040555), {"open/x", ""}}));
    EXPECT_EQ(seen, 0755U);
    EXPECT_EQ(ModeOf(m_dest + "/open"), 0555U);
}

TEST_F(Unzip, ADirectoryThatForbidsWritingIsFilledFirst)
{
    ASSERT_TRUE(Run(std::vector<CZipInput>{ZipDirectory("locked/", 040555),
                                           {"locked/x", "y"}}));
    EXPECT_EQ(ModeOf(m_dest + "/locked"), 0555U);
    EXPECT_EQ(ReadFile(m_dest + "/locked/x"), "y");
    chmod((m_dest + "/locked").c_str(), 0755);
}

TEST_F(Unzip, TheDestinationItselfKeepsItsMode)
{
    chmod(m_dest.c_str(), 0750);
    ASSERT_TRUE(
        Run(std::vector<CZipInput>{ZipDirectory("./", 040777), {"./x", ""}}));
    EXPECT_EQ(ModeOf(m_dest), 0750U);
    EXPECT_EQ(m_witness.calls.size(), 2U);
}

TEST_F(Unzip, AReplacedFileIsAnotherFile)
{
    WriteFile(m_dest + "/running", "old");
    fs::create_hard_link(m_dest + "/running", m_dest + "/kept");
    const ino_t before = InodeOf(m_dest + "/running");
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"running", "new"}}));
    EXPECT_NE(InodeOf(m_dest + "/running"), before);
    EXPECT_EQ(ReadFile(m_dest + "/running"), "new");
    EXPECT_EQ(ReadFile(m_dest + "/kept"), "old") << "what a process maps";
    EXPECT_EQ(Tree(), (Names{"kept", "running"}));
}

TEST_F(Unzip, ARunningProgramCanBeReplaced)
{
    const std::string shell = m_dest + "/shell";
    fs::copy_file("/bin/sh", shell);
    CProcess running({shell, "-c", "echo ready; kill -STOP $$"});
    ASSERT_TRUE(WaitUntil([&] { return running.Out() == "ready\n"; }));
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"shell", "new"}}));
    EXPECT_EQ(ReadFile(shell), "new");
    EXPECT_FALSE(running.HasEnded());
}

TEST_F(Unzip, MakesAMissingDestination)
{
    m_dest = m_dir.File("new/bin");
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"x", "y"}}));
    EXPECT_EQ(ReadFile(m_dest + "/x"), "y");
    EXPECT_EQ(ModeOf(m_dir.File("new")), 0700U);
}

TEST_F(Unzip, ARefusedArchiveMakesNoDestination)
{
    m_dest = m_dir.File("new/bin");
    EXPECT_FALSE(Run(std::vector<CZipInput>{{"good", ""}, {"../x", "evil"}}));
    ExpectWarning("entry '../x': its name leads out of its directory");
    EXPECT_FALSE(Run(std::string("no archive at all, but long enough")));
    ExpectWarning(
        "no zip directory at its end: truncated or not a zip archive");
    EXPECT_FALSE(FileExists(m_dir.File("new")));
}

TEST_F(Unzip, ADestinationMayBeRelativeAndMissing)
{
    const fs::path before = fs::current_path();
    fs::current_path(m_dir.Path());
    m_dest = "new/bin";
    const bool isUnpacked = Run(std::vector<CZipInput>{{"x", "y"}});
    fs::current_path(before);
    EXPECT_TRUE(isUnpacked);
    EXPECT_EQ(ReadFile(m_dir.File("new/bin/x")), "y");
}

TEST_F(Unzip, AFileInTheDestinationsPlaceIsAnError)
{
    WriteFile(m_dir.File("file"), "kept");
    for (const char* name : {"file", "file/bin"})
    {
        m_dest = m_dir.File(name);
        EXPECT_FALSE(Run(std::vector<CZipInput>{{"x", "y"}}));
        ExpectWarning("the destination '" + m_dest +
                      "' cannot be opened: Not a directory");
    }
    m_dest.clear();
    EXPECT_FALSE(Run(std::vector<CZipInput>{{"x", "y"}}));
    ExpectWarning(
        "the destination '' cannot be opened: No such file or directory");
}

TEST_F(Unzip, ArchivesThatAimElsewhereAreRefused)
{
    const auto after = [](const std::string& name) {
        return std::vector<CZipInput>{{"good", "x"}, {name, "evil"}};
    };
    ExpectRefused(after("../outside/secret"),
                  "entry '../outside/secret': its name leads out of its "
                  "directory");
    ExpectRefused(after("a/../../outside/secret"),
                  "entry 'a/../../outside/secret': its name leads out of its "
                  "directory");
    ExpectRefused(after(m_outside + "/secret"),
                  "entry '" + m_outside +
                      "/secret': its name is an absolute path");
    ExpectRefused(after("..\\outside\\secret"),
                  "entry '..\\outside\\secret': its name holds a backslash");
    ExpectRefused(after(std::string("../outside/secret\0", 18)),
                  "entry '../outside/secret\\x00': its name holds a NUL");
    CZipInput link{"link", "../outside"};
    link.mode = 0120777;
    ExpectRefused({{"good", "x"}, link, {"link/secret", "evil"}},
                  "entry 'link': it is a symbolic link");
    CZipInput device{"null", ""};
    device.mode = 0020666;
    ExpectRefused({{"good", "x"}, device},
                  "entry 'null': it is a device or another special file");
}

TEST_F(Unzip, ExistingLinksThatLeadOutsideAreRefused)
{
    fs::create_directory_symlink(m_outside, m_dest + "/out");
    fs::create_directory_symlink("../outside", m_dest + "/relative");
    fs::create_directory_symlink("..", m_dest + "/up");
    fs::create_symlink("nowhere", m_dest + "/dangling");
    fs::create_symlink("loop", m_dest + "/loop");
    fs::create_directory_symlink("out", m_dest + "/second");
    fs::create_directory_symlink(m_dest + "-other", m_dest + "/sibling");
    fs::create_directory(m_dest + "-other");
    for (const char* name : {"out", "relative", "up", "second", "sibling"})
    {
        SCOPED_TRACE(name);
        const std::string link(name);
        const std::string reason =
            "the symbolic link '" + link + "' leads outside of the destination";
        for (const CZipInput& entry :
             {CZipInput(link + "/secret", "evil"), ZipDirectory(link + "/")})
        {
            std::string whole = "entry '" + entry.name;
            whole += "': " + reason;
            ExpectRefused({{"good", "x"}, entry}, whole);
        }
    }
    ExpectRefused({{"dangling/x", "evil"}},
                  "entry 'dangling/x': the symbolic link 'dangling' cannot be "
                  "followed: No such file or directory");
    ExpectRefused({{"loop/x", "evil"}},
                  "entry 'loop/x': the symbolic link 'loop' cannot be "
                  "followed: Too many levels of symbolic links");
}

TEST_F(Unzip, LinksInsideAreFollowed)
{
    fs::create_directories(m_dest + "/lib64/deep");
    fs::create_directory_symlink("lib64", m_dest + "/lib");
    fs::create_directory_symlink("../lib/deep", m_dest + "/lib64/again");
    fs::create_directory_symlink(".", m_dest + "/self");
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"lib/a", "1"},
                                           {"lib/again/b", "2"},
                                           {"self/self/c", "3"},
                                           ZipDirectory("lib/", 040700)}));
    EXPECT_EQ(ReadFile(m_dest + "/lib64/a"), "1");
    EXPECT_EQ(ReadFile(m_dest + "/lib64/deep/b"), "2");
    EXPECT_EQ(ReadFile(m_dest + "/c"), "3");
    EXPECT_TRUE(fs::is_symlink(m_dest + "/lib"));
}

TEST_F(Unzip, ALinkInAFilesPlaceIsReplacedItself)
{
    fs::create_symlink(m_outside + "/secret", m_dest + "/x");
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"x", "new"}}));
    EXPECT_FALSE(fs::is_symlink(m_dest + "/x"));
    EXPECT_EQ(ReadFile(m_dest + "/x"), "new");
    EXPECT_EQ(ReadFile(m_outside + "/secret"), "untouched");
}

TEST_F(Unzip, ADirectoryInAFilesPlaceIsAnError)
{
    WriteFile(m_dest + "/x/inside", "kept");
    EXPECT_FALSE(
        Run(std::vector<CZipInput>{{"first", "1"}, {"x", "2"}, {"y", "3"}}));
    ExpectWarning("entry 'x': it cannot be put into its place: Is a directory");
    EXPECT_EQ(Tree(), (Names{"first", "x/", "x/inside"}));
}

TEST_F(Unzip, AFileInADirectorysPlaceIsAnError)
{
    WriteFile(m_dest + "/x", "kept");
    EXPECT_FALSE(
        Run(std::vector<CZipInput>{{"first", "1"}, {"x/y", "2"}, {"z", "3"}}));
    ExpectWarning("entry 'x/y': the directory 'x' cannot be entered: Not a "
                  "directory");
    EXPECT_FALSE(Run(std::vector<CZipInput>{ZipDirectory("x/")}));
    ExpectWarning(
        "entry 'x/': the directory 'x' cannot be entered: Not a directory");
    EXPECT_EQ(Tree(), (Names{"first", "x"}));
    EXPECT_EQ(ReadFile(m_dest + "/x"), "kept");
}

// Entries before the damage stay; the damaged one leaves what was there.
TEST_F(Unzip, ADamagedEntryLeavesTheOldFile)
{
    const struct
    {
        const char* what;
        std::function<void(CZipInput&)> damage;
        const char* reason;
    } cases[] = {
        {"checksum", [](CZipInput& f) { f.crc = 1; }, "its checksum is wrong"},
        {"stored checksum",
         [](CZipInput& f)
         {
             f.deflate = false;
             f.crc = 1;
         },
         "its checksum is wrong"},
        {"longer", [](CZipInput& f) { f.size = f.content.size() - 1; },
         "its compressed data are damaged"},
        {"shorter", [](CZipInput& f) { f.size = f.content.size() + 1; },
         "its compressed data are damaged"},
        {"garbage", [](CZipInput& f) { f.packed = Noise(90000); },
         "its compressed data are damaged"},
        {"cut", [](CZipInput& f) { f.packed->resize(f.packed->size() / 2); },
         "its compressed data are damaged"},
        {"followed", [](CZipInput& f) { *f.packed += "x"; },
         "its compressed data are damaged"},
    };
    for (const std::size_t size : {100000, 6000000})
        for (const auto& test : cases)
        {
            SCOPED_TRACE(testing::Message() << test.what << ", " << size);
            CZipInput bad{"x", Prose(size)};
            const std::string whole = MakeZip({bad});
            // The deflated bytes, cut out of a good archive.
            const std::size_t packed =
                whole.find(std::string("PK\1\2", 4)) - 31;
            bad.packed = whole.substr(31, packed);
            test.damage(bad);
            if (!bad.deflate)
                bad.packed.reset();
            WriteFile(m_dest + "/x", "old");
            fs::remove(m_dest + "/first");
            EXPECT_FALSE(Run(
                std::vector<CZipInput>{{"first", "1"}, bad, {"last", "3"}}));
            ExpectWarning(std::string("entry 'x': ") + test.reason);
            EXPECT_EQ(Tree(), (Names{"first", "x"}));
            EXPECT_TRUE(ReadFile(m_dest + "/x") == "old");
        }
}

TEST_F(Unzip, ATornArchiveTouchesNothing)
{
    const std::string whole =
        MakeZip({{"a", Noise(3000)}, {"b", Prose(3000)}, {"c", "x"}});
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_FALSE(Run(whole.substr(0, whole.size() * i / 50))) << i;
        EXPECT_EQ(m_log.m_texts.size(), 1U);
        m_log.m_texts.clear();
    }
    EXPECT_TRUE(Tree().empty());
    EXPECT_TRUE(m_witness.calls.empty());
}

// The archive is read more than once; what was good the first time may be bad
// the next.
TEST_F(Unzip, AnArchiveThatChangesMeanwhileDoesNotEscape)
{
    constexpr int kFiles = 8000; // more than is read at once
    fs::create_directory_symlink("../outside", m_dest + "/ln");
    const struct
    {
        std::string before;
        std::string after;
        const char* reason;
    } cases[] = {
        {"aa/outside/secret", "../outside/secret",
         "its name leads out of its directory"},
        {"aa/secret", "ln/secret",
         "the symbolic link 'ln' leads outside of the destination"},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.after);
        std::vector<CZipInput> files;
        files.reserve(kFiles + 1);
        for (int i = 0; i < kFiles; ++i)
            files.emplace_back("file" + std::to_string(i), "");
        files.emplace_back(test.before, "evil");
        std::string changed = MakeZip(files);
        for (std::size_t at = 0;
             (at = changed.find(test.before, at)) != std::string::npos;)
            changed.replace(at, test.before.size(), test.after);
        m_witness.calls.clear();
        m_witness.answer = [&](const wxString& name)
        {
            if (name == "file0")
            {
                const int file = open(m_archive.c_str(), O_WRONLY);
                EXPECT_EQ(write(file, changed.data(), changed.size()),
                          static_cast<ssize_t>(changed.size()));
                close(file);
            }
            return name.find("secret") != wxString::npos;
        };
        EXPECT_FALSE(Run(files));
        ExpectWarning("entry '" + test.after + "': " + test.reason);
        EXPECT_EQ(ReadFile(m_outside + "/secret"), "untouched");
        EXPECT_EQ(m_witness.calls.size(), static_cast<std::size_t>(kFiles));
    }
}

TEST_F(Unzip, WhatIsNoArchiveIsRefused)
{
    EXPECT_FALSE(Run(std::string()));
    ExpectWarning("the file is empty");
    EXPECT_FALSE(Run(std::string(3000, 'x')));
    ExpectWarning(
        "no zip directory at its end: truncated or not a zip archive");
    fs::remove(m_archive);
    EXPECT_FALSE(KzaCore::Unzip(wxFileName(m_archive),
                                wxFileName(m_dest, wxEmptyString), WitnessCB,
                                &m_witness));
    ExpectWarning("cannot be opened: No such file or directory");
}

TEST_F(Unzip, LeftoversOfADeadProcessAreRemoved)
{
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
    const std::string gone = "/.kza_unzip." + std::to_string(dead) + ".7";
    const std::string alive = "/.kza_unzip." + std::to_string(getppid()) + ".7";
    for (const std::string& directory : {m_dest, m_dest + "/lib"})
    {
        WriteFile(directory + gone, "half");
        WriteFile(directory + alive, "half");
    }
    WriteFile(m_dest + "/.kza_unzip.x", "not ours");

    // An archive that is refused removes nothing.
    EXPECT_FALSE(Run(std::vector<CZipInput>{{"lib/x", ""}, {"../y", ""}}));
    EXPECT_TRUE(FileExists(m_dest + gone));
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"lib/x", ""}, {"y", ""}}));
    EXPECT_EQ(Tree(), (Names{alive.substr(1), ".kza_unzip.x", "lib/",
                             "lib" + alive, "lib/x", "y"}));
}

TEST_F(Unzip, AnUnwritableDestinationIsAnError)
{
    if (geteuid() == 0)
    {
        // Missing rights do not stop the superuser; /proc takes no files from
        // any user.
        fs::create_directory(m_dir.File("gone"));
        m_dest = "/proc/self/fdinfo";
    }
    else
    {
        chmod(m_dest.c_str(), 0500);
    }
    EXPECT_FALSE(Run(std::vector<CZipInput>{{"x", "y"}}));
    ASSERT_EQ(m_log.m_texts.size(), 1U);
    EXPECT_TRUE(m_log.m_texts[0].Contains("entry 'x': it cannot be made: "))
        << m_log.m_texts[0];
    if (geteuid() != 0)
        chmod(m_dest.c_str(), 0700);
}

TEST_F(Unzip, TooDeepATreeIsRefused)
{
    std::string name;
    for (int i = 0; i < 101; ++i)
        name += "d/";
    EXPECT_TRUE(Run(std::vector<CZipInput>{{name.substr(2) + "x", "y"}}));
    ExpectRefused({{"good", "x"}, {name + "x", "y"}},
                  "entry '" + name.substr(0, 200) +
                      "...': too many directories deep");
}

TEST_F(Unzip, WhatItCannotHoldIsRefusedAtOnce)
{
    const int status = InChild(
        [&]
        {
            EnterMountNamespace();
            MountTmpfs(m_dest, "1m");
            const std::string zeros(600 << 10, '\0');
            ExpectRefused({{"small", "x"}, {"a", zeros}, {"b", zeros}},
                          "its files need 1228801 bytes where 1048576 are "
                          "free");
            EXPECT_TRUE(
                Run(std::vector<CZipInput>{{"small", "x"}, {"a", zeros}}));

            // What is there already takes room until it is replaced.
            ExpectRefused({{"a", zeros}},
                          "its files need 614400 bytes where 430080 are free");
        });
    EXPECT_EQ(status, 0);
}

TEST_F(Unzip, EachFileSystemNeedsItsRoom)
{
    fs::create_directories(m_dest + "/small");
    const int status = InChild(
        [&]
        {
            EnterMountNamespace();
            MountTmpfs(m_dest + "/small", "1m");
            const std::string zeros(600 << 10, '\0');
            ExpectRefused(
                {{"first", zeros}, {"small/a", zeros}, {"small/new/b", zeros}},
                "its files need 1228800 bytes where 1048576 are free");
            EXPECT_TRUE(Run(std::vector<CZipInput>{
                {"first", zeros}, {"small/a", zeros}, {"second", zeros}}));
        });
    EXPECT_EQ(status, 0);
}

// --- Where only names matter -----------------------------------------------

class UnzipNames : public Unzip
{
protected:
    UnzipNames() { m_options.namesOnly = true; }
};

TEST_F(UnzipNames, EveryEntryIsShownAndNothingIsWritten)
{
    CZipInput encrypted{"lib/encrypted", "text"};
    encrypted.flags = 1;
    CZipInput other{"other", "text"};
    other.method = 14;
    CZipInput large{"large", ""};
    large.size = 0xF0000000;
    m_dest = m_dir.File("missing");
    ASSERT_TRUE(Run(std::vector<CZipInput>{encrypted,
                                           other,
                                           large,
                                           {"twice", "1"},
                                           {"twice", "2"},
                                           ZipDirectory("made/", 040777)}));
    Names names;
    for (const CCall& call : m_witness.calls)
        names.push_back(std::string(call.path.utf8_str()));
    EXPECT_EQ(names, (Names{m_dest + "/lib/encrypted", m_dest + "/other",
                            m_dest + "/large", m_dest + "/twice",
                            m_dest + "/twice", m_dest + "/made"}));
    EXPECT_FALSE(FileExists(m_dest));
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(UnzipNames, NamesAreCheckedAsEver)
{
    fs::create_directory_symlink(m_outside, m_dest + "/out");
    ExpectRefused({{"good", "x"}, {"../outside/secret", ""}},
                  "entry '../outside/secret': its name leads out of its "
                  "directory");
    ExpectRefused({{"good", "x"}, {"out/secret", ""}},
                  "entry 'out/secret': the symbolic link 'out' leads outside "
                  "of the destination");
}

TEST_F(UnzipNames, WhatIsThereKeepsItsMode)
{
    fs::create_directory(m_dest + "/lib");
    chmod((m_dest + "/lib").c_str(), 0710);
    ASSERT_TRUE(Run(std::vector<CZipInput>{ZipDirectory("lib/", 040700)}));
    EXPECT_EQ(ModeOf(m_dest + "/lib"), 0710U);
}

// --- The check alone -------------------------------------------------------

class CanUnzip : public Unzip
{
protected:
    // The warning that unpacking would give, empty when it would give none.
    std::string RefusalOf(const std::vector<CZipInput>& files)
    {
        WriteFile(m_archive, MakeZip(files));
        wxString error;
        const bool can = KzaCore::CanUnzip(wxFileName(m_archive),
                                           wxFileName(m_dest, wxEmptyString),
                                           m_options, error);
        EXPECT_EQ(can, error.empty());
        return std::string(error.utf8_str());
    }
};

TEST_F(CanUnzip, SaysWhatTheWarningWouldAndLogsNothing)
{
    EXPECT_EQ(RefusalOf({{"x", ""}}), "");
    EXPECT_EQ(RefusalOf({{"x", ""}, {"../x", ""}}),
              "Unable to unpack '" + m_archive +
                  "': entry '../x': its name leads out of its directory");
    EXPECT_EQ(RefusalOf({{"x", "1"}, {"x", "2"}}),
              "Unable to unpack '" + m_archive +
                  "': entry 'x': it is there twice");
    m_options.namesOnly = true;
    EXPECT_EQ(RefusalOf({{"x", "1"}, {"x", "2"}}), "");
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(CanUnzip, TouchesNothing)
{
    const std::string leftover =
        "/.kza_unzip." + std::to_string(getpid()) + ".7";
    WriteFile(m_dest + leftover, "half");
    EXPECT_EQ(RefusalOf({{"x", ""}}), "");
    EXPECT_EQ(Tree(), Names{leftover.substr(1)});
    m_dest = m_dir.File("missing");
    EXPECT_EQ(RefusalOf({{"x", ""}}), "");
    EXPECT_FALSE(FileExists(m_dest));
}

// --- The archive afterwards ------------------------------------------------

TEST_F(Unzip, TheArchiveStaysOpenForItsCaller)
{
    KzaCore::COpenedFile opened;
    m_options.opened = &opened;
    EXPECT_FALSE(Run(std::vector<CZipInput>{{"../x", ""}}));
    EXPECT_FALSE(opened.IsOpen());
    m_log.m_texts.clear();
    ASSERT_TRUE(Run(std::vector<CZipInput>{{"x", ""}}));
    EXPECT_TRUE(opened.IsInPlace());
    fs::rename(m_archive, m_archive + ".done");
    EXPECT_FALSE(opened.IsInPlace());
}

// --- Signatures ------------------------------------------------------------

class UnzipSigned : public Unzip
{
protected:
    UnzipSigned()
    {
        const std::string directory = m_dir.File("keys");
        WriteFile(directory + "/a.pem", Key().PublicPem());
        chmod(directory.c_str(), 0755);
        chmod((directory + "/a.pem").c_str(), 0644);
        std::vector<std::string> passedOver;
        EXPECT_EQ(m_keys.Read(directory, passedOver),
                  KzaCore::CPackageKeys::EResult::Good);
        m_options.keys = &m_keys;
        m_options.signature = &m_signature;
    }

    static const CSigningKey& Key()
    {
        static const CSigningKey key = CSigningKey::Ecdsa();
        return key;
    }

    void Sign(const std::string& bytes)
    {
        WriteFile(m_archive + ".sig", Key().Sign(bytes));
        ASSERT_TRUE(m_signature.Open(m_archive + ".sig"));
    }

    void Overwrite(std::size_t offset, const std::string& bytes) const
    {
        const int file = open(m_archive.c_str(), O_WRONLY);
        EXPECT_EQ(pwrite(file, bytes.data(), bytes.size(),
                         static_cast<off_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
        close(file);
    }

    KzaCore::CPackageKeys m_keys;
    KzaCore::COpenedFile m_signature;
};

TEST_F(UnzipSigned, ASignedArchiveIsUnpacked)
{
    CZipInput stored{"stored", Noise(700000)};
    stored.deflate = false;
    const std::vector<CZipInput> files = {
        {"a", "1"}, stored, {"large", Prose(9000000)}, ZipDirectory("d/")};
    Sign(MakeZip(files));
    ASSERT_TRUE(Run(files));
    EXPECT_EQ(Tree(), (Names{"a", "d/", "large", "stored"}));
    EXPECT_TRUE(ReadFile(m_dest + "/large") == files[2].content);
    EXPECT_TRUE(ReadFile(m_dest + "/stored") == stored.content);
}

// A file that is no archive is first refused for its signature.
TEST_F(UnzipSigned, NothingIsLookedAtBeforeTheSignature)
{
    EXPECT_FALSE(Run(std::string("no archive")));
    ExpectWarning("it has no signature");
    Sign("another one");
    EXPECT_FALSE(Run(std::string("no archive")));
    ExpectWarning("its signature fits none of the keys");
    Sign("no archive");
    EXPECT_FALSE(Run(std::string("no archive")));
    ExpectWarning("too short for a zip archive");
    EXPECT_TRUE(Tree().empty());
}

TEST_F(UnzipSigned, WhereOnlyNamesMatterTheSignatureDoesToo)
{
    m_options.namesOnly = true;
    const std::vector<CZipInput> files = {{"a", "1"}, {"a", "2"}};
    EXPECT_FALSE(Run(files));
    ExpectWarning("it has no signature");
    Sign(MakeZip(files));
    EXPECT_TRUE(Run(files));
    EXPECT_EQ(m_witness.calls.size(), 2U);
}

TEST_F(UnzipSigned, WhatIsCheckedIsUnpackedWhenAnotherTakesItsName)
{
    const std::vector<CZipInput> files = {{"a", "good"}, {"b", "good"}};
    Sign(MakeZip(files));
    m_witness.answer = [&](const wxString& name)
    {
        if (name == "a")
        {
            WriteFile(m_archive + ".evil", MakeZip({{"b", "evil"}}));
            fs::rename(m_archive + ".evil", m_archive);
        }
        return true;
    };
    EXPECT_TRUE(Run(files));
    EXPECT_EQ(ReadFile(m_dest + "/b"), "good");
}

// The writer even sets the times back.
TEST_F(UnzipSigned, AnArchiveThatIsChangedIsRefused)
{
    CZipInput first{"first", Noise(200000, 1)};
    CZipInput second{"second", Noise(200000, 2)};
    first.deflate = second.deflate = false;
    const std::string good = MakeZip({first, second});
    CZipInput other{"second", Noise(200000, 3)};
    other.deflate = false;
    const std::string evil = MakeZip({first, other});
    ASSERT_EQ(good.size(), evil.size());
    Sign(good);
    m_witness.answer = [&](const wxString& name)
    {
        if (name == "second")
        {
            const auto time = fs::last_write_time(m_archive);
            Overwrite(0, evil);
            fs::last_write_time(m_archive, time);
        }
        return true;
    };
    EXPECT_FALSE(Run(good));
    ExpectWarning("entry 'second': the file was changed after its signature "
                  "had been checked");
    EXPECT_EQ(Tree(), Names{"first"});
    EXPECT_TRUE(ReadFile(m_dest + "/first") == first.content);
}

} // namespace
