// SPDX-License-Identifier: Apache-2.0

#include "archive/ZipArchive.h"

#include "support/Heap.h"
#include "support/InChild.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using KzaCore::CZipArchive;
using KzaCore::CZipEntry;
using namespace TestSupport;

namespace
{

class ZipArchive : public ::testing::Test
{
protected:
    // Opens an archive of these bytes; the reason when it cannot be.
    std::string Open(CZipArchive& archive, const std::string& bytes)
    {
        WriteFile(m_path, bytes);
        std::string error;
        return archive.Open(m_path, error) ? std::string() : error;
    }

    static std::string Content(const CZipArchive& archive,
                               const std::string& name)
    {
        const CZipEntry* const entry = archive.Find(name);
        if (entry == nullptr)
            return "no such entry";
        std::string bytes;
        std::string error;
        return archive.Read(*entry, bytes, error) ? bytes : error;
    }

    // The reason why the only entry of an archive cannot be read.
    std::string ReadError(const CZipInput& file)
    {
        CZipArchive archive;
        EXPECT_EQ(Open(archive, MakeZip({file})), "");
        std::string bytes;
        std::string error = "none";
        if (archive.Entries().empty())
            return "no entry";
        EXPECT_FALSE(archive.Read(archive.Entries()[0], bytes, error));
        return error;
    }

    CTempDir m_dir;
    std::string m_path = m_dir.File("a.zip");
};

TEST_F(ZipArchive, GivesEntriesInOrderAndByName)
{
    CZipInput stored{"b/stored.lua", "stored text"};
    stored.deflate = false;
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip({ZipDirectory("b/"),
                                     stored,
                                     {"a.lua", Prose(100000)},
                                     {"empty", ""}})),
              "");
    ASSERT_EQ(archive.Entries().size(), 4U);
    EXPECT_EQ(archive.Entries()[0].name, "b/");
    EXPECT_TRUE(archive.Entries()[0].IsDirectory());
    EXPECT_EQ(archive.Entries()[1].UnixMode(), 0100644U);
    EXPECT_EQ(Content(archive, "b/stored.lua"), "stored text");
    EXPECT_EQ(Content(archive, "a.lua"), Prose(100000));
    EXPECT_EQ(Content(archive, "empty"), "");
    EXPECT_EQ(archive.Find("A.lua"), nullptr);
    EXPECT_EQ(archive.Find("b"), nullptr);
    EXPECT_EQ(archive.Find({}), nullptr);
}

TEST_F(ZipArchive, ReadsEveryFormOfSizes)
{
    for (const bool zip64 : {false, true})
        for (const bool sizesFollow : {false, true})
            for (const bool zip64End : {false, true})
            {
                SCOPED_TRACE(testing::Message()
                             << zip64 << sizesFollow << zip64End);
                CZipInput file{"name", Prose(5000)};
                file.zip64 = zip64;
                file.sizesFollow = sizesFollow;
                CZipOptions options;
                options.zip64End = zip64End;
                options.comment = "PK and more";
                CZipArchive archive;
                ASSERT_EQ(Open(archive, MakeZip({file, file}, options)), "");
                EXPECT_EQ(Content(archive, "name"), file.content);
            }
}

// Some writers fill all short fields when there are long ones.
TEST_F(ZipArchive, TheEntrysDiskMayBeLeftToItsZip64Field)
{
    CZipInput file{"name", "text"};
    file.zip64 = true;
    file.zip64Disk = 0;
    CZipArchive first;
    ASSERT_EQ(Open(first, MakeZip({file})), "");
    EXPECT_EQ(Content(first, "name"), "text");
    file.zip64Disk = 1;
    CZipArchive second;
    EXPECT_EQ(Open(second, MakeZip({file})),
              "entry 'name': it lies outside of the archive");
}

TEST_F(ZipArchive, DiskNumbersMayBeLeftToTheZip64Record)
{
    const std::vector<CZipInput> files = {{"name", "text"}};
    CZipOptions options;
    options.fullDisks = true;
    CZipArchive without;
    EXPECT_EQ(Open(without, MakeZip(files, options)),
              "one part of a divided archive");
    options.zip64End = true;
    CZipArchive with;
    ASSERT_EQ(Open(with, MakeZip(files, options)), "");
    EXPECT_EQ(Content(with, "name"), "text");
    options.disk = 1;
    CZipArchive divided;
    EXPECT_EQ(Open(divided, MakeZip(files, options)),
              "the zip64 end record disagrees with the end record");
}

TEST_F(ZipArchive, TheFirstOfTwoEntriesOfOneNameIsFound)
{
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip({{"x", "first"}, {"x", "second"}})), "");
    EXPECT_EQ(Content(archive, "x"), "first");
}

TEST_F(ZipArchive, AnEmptyArchiveIsAnArchive)
{
    CZipArchive archive;
    EXPECT_EQ(Open(archive, MakeZip({})), "");
    EXPECT_TRUE(archive.Entries().empty());
    EXPECT_EQ(archive.Find("x"), nullptr);
}

TEST_F(ZipArchive, ManyEntriesAreAllFound)
{
    std::vector<CZipInput> files;
    for (int i = 0; i < 5000; ++i)
    {
        CZipInput file{"module" + std::to_string(i) + ".lua",
                       std::to_string(i)};
        file.deflate = false;
        files.push_back(file);
    }
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip(files)), "");
    for (const CZipInput& file : files)
        ASSERT_EQ(Content(archive, file.name), file.content);
}

TEST_F(ZipArchive, WhatIsNoArchiveIsRefusedWithItsReason)
{
    const std::string cut = "no zip directory at its end: truncated or not a "
                            "zip archive";
    const std::string good = MakeZip({{"name", "text"}});
    CZipOptions shifted;
    shifted.before = "#!/bin/sh\n";
    std::string moved = good;
    moved.insert(0, shifted.before); // offsets that are no longer true
    const struct
    {
        std::string bytes;
        std::string reason;
    } cases[] = {
        {"", "the file is empty"},
        {"PK", "too short for a zip archive"},
        {std::string(5000, 'x'), cut},
        {good.substr(0, good.size() - 1), cut},
        {good + "x", cut},
        {moved, "the zip directory is not where its end record says"},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.bytes.size());
        CZipArchive archive;
        EXPECT_EQ(Open(archive, test.bytes), test.reason);
        EXPECT_TRUE(archive.Entries().empty());
    }
    CZipArchive archive;
    EXPECT_EQ(Open(archive, MakeZip({{"name", "text"}}, shifted)), "");
}

TEST_F(ZipArchive, WhatIsNoFileIsRefusedWithItsReason)
{
    std::string error;
    CZipArchive missing;
    EXPECT_FALSE(missing.Open(m_path, error));
    EXPECT_EQ(error, "cannot be opened: No such file or directory");
    CZipArchive directory;
    EXPECT_FALSE(directory.Open(m_dir.Path(), error));
    EXPECT_EQ(error, "not a regular file");
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    CZipArchive pipe;
    EXPECT_FALSE(pipe.Open(m_path, error)) << "and does not wait for a writer";
    EXPECT_EQ(error, "not a regular file");
}

TEST_F(ZipArchive, EntriesOutsideOfTheFileAreRefused)
{
    CZipInput file{"name", "text"};
    CZipArchive far;
    file.offset = 1U << 30;
    EXPECT_EQ(Open(far, MakeZip({file})),
              "entry 'name': it lies outside of the archive");
    CZipArchive large;
    file.offset.reset();
    file.packedSize = 1U << 30;
    EXPECT_EQ(Open(large, MakeZip({file})),
              "entry 'name': it lies outside of the archive");
    CZipArchive huge;
    file.packedSize = ~std::uint64_t(0);
    file.zip64 = true;
    EXPECT_EQ(Open(huge, MakeZip({file})),
              "entry 'name': it lies outside of the archive");
    CZipArchive divided;
    EXPECT_EQ(Open(divided,
                   [&]
                   {
                       CZipInput other{"name", "text"};
                       other.diskNumber = 1;
                       return MakeZip({other});
                   }()),
              "entry 'name': it lies outside of the archive");
}

TEST_F(ZipArchive, UnreadableEntriesGiveTheirReason)
{
    const std::string disagrees = "the zip directory disagrees with its header";
    const std::string text = Prose(1000);
    const auto changed = [&](auto change)
    {
        CZipInput file{"name", text};
        change(file);
        return ReadError(file);
    };
    EXPECT_EQ(changed([](CZipInput& f) { f.crc = 1; }), "wrong checksum");
    EXPECT_EQ(changed([](CZipInput& f) { f.size = 999; }),
              "damaged compressed data");
    EXPECT_EQ(changed([](CZipInput& f) { f.size = 1001; }),
              "damaged compressed data");
    EXPECT_EQ(changed([](CZipInput& f) { f.packed = "\xff\xff\xff"; }),
              "damaged compressed data");
    EXPECT_EQ(changed(
                  [](CZipInput& f)
                  {
                      f.size = std::uint64_t(1) << 40;
                      f.zip64 = true;
                  }),
              "larger than its compressed bytes can give");
    EXPECT_EQ(changed(
                  [](CZipInput& f)
                  {
                      f.deflate = false;
                      f.size = 900;
                  }),
              "stored in another size than its own");
    EXPECT_EQ(changed([](CZipInput& f) { f.method = 12; }),
              "unknown compression method 12");
    EXPECT_EQ(changed([](CZipInput& f) { f.flags = 1; }), "encrypted");
    EXPECT_EQ(changed([](CZipInput& f) { f.localName = "nome"; }), disagrees);
    EXPECT_EQ(changed([](CZipInput& f) { f.localName = "longer"; }), disagrees);
    EXPECT_EQ(changed([](CZipInput& f) { f.localSize = 7; }), disagrees);
    EXPECT_EQ(changed([](CZipInput& f) { f.localCrc = 7; }), disagrees);
    EXPECT_EQ(changed([](CZipInput& f) { f.localMethod = 0; }), disagrees);
}

TEST_F(ZipArchive, AFalseSizeTakesNoMoreMemoryThanComesOut)
{
    CZipInput file{"name", Noise(1 << 20)};
    file.size = 1000U << 20; // just possible for a megabyte of packed bytes
    const int status = InChild(
        [&]
        {
            const long before = PeakKiB();
            EXPECT_EQ(ReadError(file), "damaged compressed data");
            EXPECT_LT(PeakKiB(), before + 100 * 1024);
        });
    EXPECT_EQ(status, 0);
}

TEST_F(ZipArchive, ALargeEntryIsReadWhole)
{
    const CZipInput file{"name", Prose(1 << 20) + std::string(30 << 20, 'x')};
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip({file})), "");
    EXPECT_TRUE(Content(archive, "name") == file.content);
}

// A torn archive is never whole. One with a changed byte may be, but is read to
// an end, and each failure has a reason.
TEST_F(ZipArchive, DamageAnywhereIsAnError)
{
    CZipInput stored{"stored", Noise(50)};
    stored.deflate = false;
    stored.zip64 = true;
    CZipOptions options;
    options.zip64End = true;
    const std::string good =
        MakeZip({{"deflated", Prose(300)}, stored}, options);
    const auto readAll = [&](const std::string& bytes)
    {
        CZipArchive archive;
        bool isWhole = Open(archive, bytes).empty();
        for (const CZipEntry& entry : archive.Entries())
        {
            std::string content;
            std::string error;
            const bool isRead = archive.Read(entry, content, error);
            EXPECT_TRUE(isRead || !error.empty());
            isWhole = isWhole && isRead;
        }
        return isWhole;
    };
    EXPECT_TRUE(readAll(good));
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(readAll(good.substr(0, size))) << size;
    for (std::size_t at = 0; at < good.size(); ++at)
        for (const int bits : {0x01, 0x80, 0xFF})
        {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ bits);
            readAll(bytes);
        }
}

// The first name is so long that it takes the bytes of the other records.
TEST_F(ZipArchive, ANameThatLeavesNoRoomForTheOthersIsDamage)
{
    std::string bytes = MakeZip({{"a", ""}, {"b", ""}, {"c", ""}});
    const std::size_t record = bytes.find(std::string("PK\1\2", 4));
    bytes[record + 28] = 1 + 2 * 47; // the length of the first name
    CZipArchive archive;
    EXPECT_EQ(Open(archive, bytes), "the zip directory is damaged");
}

TEST_F(ZipArchive, TruncationUnderAnOpenArchiveIsAnError)
{
    CZipInput file{"name", Noise(100000)};
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip({file})), "");
    ASSERT_EQ(truncate(m_path.c_str(), 5000), 0);
    EXPECT_EQ(Content(archive, "name"), "the file ends too early");
}

TEST_F(ZipArchive, NoticesThatItsFileHasChanged)
{
    const std::string bytes = MakeZip({{"name", "text"}});
    CZipArchive archive;
    ASSERT_EQ(Open(archive, bytes), "");
    EXPECT_FALSE(archive.IsStale());

    // As large and as old as before, but another file.
    struct stat status = {};
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    WriteFile(m_dir.File("b.zip"), bytes);
    const timespec times[] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, m_dir.File("b.zip").c_str(), times, 0), 0);
    ASSERT_EQ(rename(m_dir.File("b.zip").c_str(), m_path.c_str()), 0);
    EXPECT_TRUE(archive.IsStale());
    EXPECT_EQ(Content(archive, "name"), "text") << "the one that was opened";

    CZipArchive again;
    ASSERT_EQ(Open(again, bytes), "");
    const timespec later[] = {{1, 0}, {1, 1}};
    ASSERT_EQ(utimensat(AT_FDCWD, m_path.c_str(), later, 0), 0);
    EXPECT_TRUE(again.IsStale());
    ASSERT_EQ(unlink(m_path.c_str()), 0);
    EXPECT_TRUE(again.IsStale());
}

TEST_F(ZipArchive, DoesNotLeakItsDescriptor)
{
    CZipArchive archive;
    ASSERT_EQ(Open(archive, MakeZip({{"name", "text"}})), "");
    struct stat file = {};
    ASSERT_EQ(stat(m_path.c_str(), &file), 0);
    int found = 0;
    for (int fd = 3; fd < 256; ++fd)
    {
        struct stat status = {};
        if (fstat(fd, &status) == 0 && status.st_ino == file.st_ino &&
            status.st_dev == file.st_dev)
        {
            ++found;
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_EQ(found, 1);
}

} // namespace
