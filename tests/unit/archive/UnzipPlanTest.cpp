// SPDX-License-Identifier: Apache-2.0

#include "archive/UnzipPlan.h"

#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

using KzaCore::CheckArchive;
using KzaCore::CheckNames;
using KzaCore::CZipFile;
using KzaCore::PlanPath;
using namespace TestSupport;

namespace
{

// The path of an entry name, or the reason against it.
std::string PathOf(const std::string& name)
{
    std::string_view path;
    std::string error;
    return PlanPath(name, path, error) ? std::string(path) : "(" + error + ")";
}

using FCheck = bool (*)(const CZipFile& archive,
                        std::size_t maxLength,
                        std::string& error);

// The reason why an archive is refused, empty when it is not.
std::string RefusalOf(const std::string& bytes,
                      std::size_t maxLength = 4000,
                      FCheck check = CheckArchive)
{
    const CTempDir dir;
    WriteFile(dir.File("a.zip"), bytes);
    CZipFile archive;
    std::string error;
    if (archive.Open(dir.File("a.zip"), error) &&
        check(archive, maxLength, error))
        return {};
    return error;
}

std::string Refusal(const std::vector<CZipInput>& files,
                    std::size_t maxLength = 4000)
{
    return RefusalOf(MakeZip(files), maxLength);
}

// The same where only the names of the entries matter.
std::string RefusalByName(const std::vector<CZipInput>& files,
                          std::size_t maxLength = 4000)
{
    return RefusalOf(MakeZip(files), maxLength, CheckNames);
}

std::string Directories(int count)
{
    std::string name;
    for (int i = 0; i < count; ++i)
        name += "d/";
    return name;
}

struct CNameCase
{
    std::string name;
    std::string path; // or the reason against the name
};

TEST(UnzipPlan, NamesBecomePlainPaths)
{
    const CNameCase cases[] = {
        {"a", "a"},
        {"lib/a.so", "lib/a.so"},
        {"lib/", "lib"},
        {"./lib/a.so", "lib/a.so"},
        {"././a", "a"},
        {"./", ""},
        {".hidden", ".hidden"},
        {"..a/b..", "..a/b.."},
        {"...", "..."},
        {"a b\n", "a b\n"},
        {"gr\xc3\xbc\xc3\x9f/\xf0\x9f\x98\x80",
         "gr\xc3\xbc\xc3\x9f/\xf0\x9f\x98\x80"},
        {std::string(255, 'x'), std::string(255, 'x')},
        {Directories(100) + "x", Directories(100) + "x"},
        {"./" + Directories(100), Directories(99) + "d"},
    };
    for (const CNameCase& test : cases)
        EXPECT_EQ(PathOf(test.name), test.path) << test.name;
}

TEST(UnzipPlan, OtherNamesAreRefusedForAReason)
{
    const std::string out = "(its name leads out of its directory)";
    const std::string absolute = "(its name is an absolute path)";
    const std::string plain = "(its name is not a plain path)";
    const std::string notUtf8 = "(its name is not UTF-8)";
    const std::string tooLong = "(its name is too long)";
    const std::string tooDeep = "(too many directories deep)";
    const CNameCase cases[] = {
        {"", "(it has no name)"},
        {"..", out},
        {"../a", out},
        {"a/../../b", out},
        {"a/..", out},
        {"a/../", out},
        {"./../a", out},
        {"/", absolute},
        {"/etc/passwd", absolute},
        {"//etc/passwd", absolute},
        {".//etc/passwd", absolute},
        {".", plain},
        {"a//b", plain},
        {"a//", plain},
        {"a/./b", plain},
        {"a/.", plain},
        {"..\\a", "(its name holds a backslash)"},
        {"C:\\a", "(its name holds a backslash)"},
        {std::string("a\0b", 3), "(its name holds a NUL)"},
        {std::string("../a\0b", 6), "(its name holds a NUL)"},
        {"\xff", notUtf8},
        {"a\xc0\xaf", notUtf8},          // a slash in two bytes
        {"\xc0\xae\xc0\xae/a", notUtf8}, // two dots likewise
        {"\xe0\x80\xaf", notUtf8},
        {"\xed\xa0\x80", notUtf8},
        {"\xf4\x90\x80\x80", notUtf8},
        {"\xc3", notUtf8},
        {std::string(256, 'x'), tooLong},
        {"a/" + std::string(256, 'x') + "/b", tooLong},
        {Directories(101) + "x", tooDeep},
        {Directories(101), tooDeep},
    };
    for (const CNameCase& test : cases)
        EXPECT_EQ(PathOf(test.name), test.path) << test.name;
}

TEST(UnzipPlan, OnlyFilesAndDirectoriesPass)
{
    const auto withMode = [](mode_t mode, const std::string& name = "x")
    {
        CZipInput file{name, ""};
        file.mode = mode;
        return Refusal({file});
    };
    EXPECT_EQ(withMode(0100755), "");
    EXPECT_EQ(withMode(0644), "") << "no kind given";
    EXPECT_EQ(withMode(0), "");
    EXPECT_EQ(withMode(040755, "x/"), "");
    EXPECT_EQ(withMode(0010644), "") << "read from a pipe";
    EXPECT_EQ(withMode(0120777), "entry 'x': it is a symbolic link");
    EXPECT_EQ(withMode(0120777, "x/"), "entry 'x/': it is a symbolic link");
    const std::string special =
        "entry 'x': it is a device or another special file";
    for (const mode_t kind : {0020000, 0060000, 0140000})
        EXPECT_EQ(withMode(kind | 0644), special);
    EXPECT_EQ(withMode(040755),
              "entry 'x': its name and its mode disagree on what it is");
    for (const mode_t kind : {0100000, 0010000})
        EXPECT_EQ(withMode(kind | 0755, "x/"),
                  "entry 'x/': its name and its mode disagree on what it is");

    CZipInput full{"x/", "content"};
    full.mode = 040755;
    EXPECT_EQ(Refusal({full}), "entry 'x/': it is a directory with contents");

    // On a system of another kind these bits mean something else.
    CZipInput dos{"x", ""};
    dos.mode = 0120777;
    dos.system = 0;
    EXPECT_EQ(Refusal({dos}), "");
}

TEST(UnzipPlan, EntriesThatExcludeEachOtherAreRefused)
{
    EXPECT_EQ(Refusal({{"a/b", "1"}, {"c", "2"}, {"a/b", "3"}}),
              "entry 'a/b': it is there twice");
    EXPECT_EQ(Refusal({{"a", "1"}, {"./a", "2"}}),
              "entry 'a': it is there twice");
    EXPECT_EQ(Refusal({{"a", "1"}, ZipDirectory("a/")}),
              "entry 'a': it is there twice");
    EXPECT_EQ(Refusal({{"a/b/c", "1"}, {"a-x", "2"}, {"a", "3"}}),
              "entry 'a': it is a file and a directory");
    EXPECT_EQ(Refusal({{"a", "1"}, {"a-x", "2"}, {"a.b/c", "3"}}), "");
    EXPECT_EQ(Refusal({{"a/b", "1"}, ZipDirectory("a/"), {"a/c", "2"}}), "");
    EXPECT_EQ(Refusal({{"A", "1"}, {"a", "2"}}), "");
}

TEST(UnzipPlan, EntriesThatShareTheirBytesAreRefused)
{
    // An entry hidden in the stored bytes of another.
    CZipInput inner{"inner", "text"};
    CZipInput outer{"outer", MakeZip({inner})};
    outer.deflate = false;
    inner.offset = 30 + 5;
    EXPECT_EQ(Refusal({outer, inner}),
              "entry 'outer': it shares its bytes with another entry");

    // The same bytes under two names.
    CZipInput copy{"copy", "text"};
    copy.localName = "name";
    copy.offset = 0;
    EXPECT_EQ(Refusal({{"name", "text"}, copy}),
              "entry 'copy': the zip directory disagrees with its header");
}

TEST(UnzipPlan, EntriesMayStandInAnotherOrderThanTheDirectory)
{
    // Two entries of the same size change places in the file.
    CZipInput a{"a", "1"};
    CZipInput b{"b", "2"};
    a.deflate = b.deflate = false;
    const std::uint32_t size = 30 + 1 + 1;
    std::string bytes = MakeZip({{"c", "3"}, a, b});
    const std::size_t begin = bytes.find(std::string("PK\3\4", 4), 1);
    std::swap_ranges(bytes.begin() + begin, bytes.begin() + begin + size,
                     bytes.begin() + begin + size);
    const std::size_t directory = bytes.find(std::string("PK\1\2", 4));
    const std::size_t second = directory + 47;
    std::swap(bytes[second + 42], bytes[second + 47 + 42]);
    EXPECT_EQ(RefusalOf(bytes), "");
}

TEST(UnzipPlan, OverlongPathsAreRefused)
{
    std::string name;
    while (name.size() < 5000)
        name += std::string(200, 'x') + "/";
    for (const auto& refusal : {Refusal, RefusalByName})
    {
        EXPECT_EQ(refusal({{name + "x", ""}}, 4000),
                  "entry '" + name.substr(0, 200) +
                      "...': its name is too long");
        EXPECT_EQ(refusal({{"abcd", ""}}, 4), "");
        EXPECT_EQ(refusal({{"abcde", ""}}, 4),
                  "entry 'abcde': its name is too long");
    }
}

// Each level costs a look at all entries: 16,500 names with 1,990 levels took
// half a minute until they were refused.
TEST(UnzipPlan, TooDeepATreeIsRefusedAtTheFirstLook)
{
    CZipInput encrypted{"last", ""};
    encrypted.flags = 1;
    const std::string reason =
        "entry '" + Directories(100) + "...': too many directories deep";
    EXPECT_EQ(Refusal({{Directories(500) + "x", ""}, encrypted}), reason);
    EXPECT_EQ(RefusalByName({{Directories(500) + "x", ""}, {"../x", ""}}),
              reason);
}

TEST(UnzipPlan, WhereOnlyNamesMatterNothingElseDoes)
{
    CZipInput encrypted{"encrypted", "text"};
    encrypted.flags = 1;
    CZipInput other{"other", "text"};
    other.method = 14;
    CZipInput link{"link", "target"};
    link.mode = 0120777;
    CZipInput device{"device", ""};
    device.mode = 0020666;
    CZipInput directory{"directory/", "with contents"};
    CZipInput disagreeing{"directory's", "text"};
    disagreeing.localName = "file's name";
    CZipInput large{"large", ""};
    large.size = 0xF0000000;
    for (const CZipInput& file :
         {encrypted, other, link, device, directory, disagreeing, large})
    {
        SCOPED_TRACE(file.name);
        EXPECT_NE(Refusal({{"good", ""}, file}), "");
        EXPECT_EQ(RefusalByName({{"good", ""}, file}), "");
    }
    EXPECT_EQ(RefusalByName({{"a", "1"}, {"a", "2"}, {"a/b", "3"}}), "");

    EXPECT_EQ(RefusalByName({{"good", ""}, {"../x", ""}}),
              "entry '../x': its name leads out of its directory");
}

TEST(UnzipPlan, WhatCannotBeReadIsRefusedBeforehand)
{
    CZipInput file{"x", "text"};
    file.flags = 1;
    EXPECT_EQ(Refusal({{"good", ""}, file}), "entry 'x': encrypted");
    file.flags = 0;
    file.method = 14;
    EXPECT_EQ(Refusal({{"good", ""}, file}),
              "entry 'x': unknown compression method 14");
    file.method.reset();
    file.localName = "y";
    EXPECT_EQ(Refusal({{"good", ""}, file}),
              "entry 'x': the zip directory disagrees with its header");
}

} // namespace
