// SPDX-License-Identifier: Apache-2.0

#include "archive/FileSeal.h"

#include "kza_core/OpenedFile.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

using namespace TestSupport;

namespace
{

constexpr std::size_t kPiece = 64 << 10;
constexpr char kChanged[] =
    "the file was changed after its signature had been checked";

class FileSeal : public ::testing::Test
{
protected:
    void Make(const std::string& content)
    {
        WriteFile(m_path, content);
        std::string error;
        ASSERT_TRUE(m_file.Open(m_path));
        ASSERT_TRUE(m_seal.Make(m_file, error)) << error;
    }

    // The bytes, or the reason why they cannot be had.
    std::string Read(std::uint64_t offset, std::size_t size)
    {
        std::string bytes(size, '\0');
        std::string error;
        return m_seal.ReadAt(m_file.Get(), offset, bytes.data(), size, error)
                   ? bytes
                   : error;
    }

    void Overwrite(std::uint64_t offset, const std::string& bytes) const
    {
        const int file = open(m_path.c_str(), O_WRONLY);
        EXPECT_EQ(pwrite(file, bytes.data(), bytes.size(),
                         static_cast<off_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
        close(file);
    }

    CTempDir m_dir;
    std::string m_path = m_dir.File("file");
    KzaCore::COpenedFile m_file;
    KzaCore::CFileSeal m_seal;
};

TEST_F(FileSeal, TheDigestIsThatOfTheWholeFile)
{
    Make("abc");
    const KzaCore::TDigest expected = {
        0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
        0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
        0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
    EXPECT_EQ(m_seal.Digest(), expected);
}

TEST_F(FileSeal, TheBytesAreThoseOfTheFile)
{
    const std::string content = Noise(3 * kPiece + 77);
    Make(content);
    EXPECT_EQ(Read(0, content.size()), content);
    for (const std::size_t offset :
         {std::size_t(0), kPiece - 1, kPiece, 2 * kPiece + 5})
        for (const std::size_t size :
             {std::size_t(0), std::size_t(1), kPiece, kPiece + 1})
            EXPECT_EQ(Read(offset, size), content.substr(offset, size))
                << offset << ", " << size;
    EXPECT_EQ(Read(content.size(), 1), "the file ends too early");
    EXPECT_EQ(Read(content.size() - 1, 2), "the file ends too early");
    EXPECT_EQ(Read(~std::uint64_t(0), 2), "the file ends too early");
}

TEST_F(FileSeal, AnEmptyFileHasNoBytes)
{
    Make("");
    EXPECT_EQ(Read(0, 0), "");
    EXPECT_EQ(Read(0, 1), "the file ends too early");
}

TEST_F(FileSeal, AChangedPieceCannotBeRead)
{
    const std::string content = Noise(4 * kPiece);
    Make(content);
    Overwrite(kPiece + 10,
              std::string(1, static_cast<char>(~content[kPiece + 10])));
    EXPECT_EQ(Read(0, kPiece), content.substr(0, kPiece));
    EXPECT_EQ(Read(kPiece, 1), kChanged);
    EXPECT_EQ(Read(0, 2 * kPiece), kChanged);
    EXPECT_EQ(Read(kPiece, 1), kChanged);
    EXPECT_EQ(Read(2 * kPiece, kPiece), content.substr(2 * kPiece, kPiece));

    std::filesystem::resize_file(m_path, 3 * kPiece);
    EXPECT_EQ(Read(3 * kPiece, 1), kChanged);
}

// Nothing in the file's status tells of it.
TEST_F(FileSeal, AChangeThroughAMappingIsSeen)
{
    const std::string content = Noise(3 * kPiece);
    WriteFile(m_path, content);
    const int file = open(m_path.c_str(), O_RDWR);
    void* const map = mmap(nullptr, content.size(), PROT_READ | PROT_WRITE,
                           MAP_SHARED, file, 0);
    close(file);
    ASSERT_NE(map, MAP_FAILED);
    auto* const bytes = static_cast<char*>(map);
    bytes[5] = content[5]; // the page is writable from now on
    std::string error;
    ASSERT_TRUE(m_file.Open(m_path));
    ASSERT_TRUE(m_seal.Make(m_file, error));
    bytes[5] = static_cast<char>(~content[5]);
    EXPECT_EQ(Read(0, 10), kChanged);
    munmap(map, content.size());
}

TEST_F(FileSeal, AFileThatEndsBeforeItsSizeIsRefused)
{
    WriteFile(m_path, Noise(2 * kPiece));
    ASSERT_TRUE(m_file.Open(m_path));
    std::filesystem::resize_file(m_path, kPiece);
    std::string error;
    EXPECT_FALSE(m_seal.Make(m_file, error));
    EXPECT_EQ(error, "the file ends too early");
}

} // namespace
