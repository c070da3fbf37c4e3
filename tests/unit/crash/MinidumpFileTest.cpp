// SPDX-License-Identifier: Apache-2.0
//
// The file format: what is written is what the format says.

#include "crash/MinidumpFile.h"
#include "support/DumpReader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KzaCore;
using TestSupport::CDumpReader;
using TestSupport::CTempDir;

namespace
{

class MinidumpFile : public testing::Test
{
protected:
    void SetUp() override
    {
        m_file = open(Path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(m_file, 0);
    }
    void TearDown() override { close(m_file); }

    [[nodiscard]] std::string Path() const { return m_dir.File("x.mdmp"); }

    CTempDir m_dir;
    int m_file = -1;
};

} // namespace

TEST_F(MinidumpFile, HeaderNamesTheDirectoryOfStreams)
{
    CMinidumpFile file(m_file);
    file.AddStream(Minidump::EStream::CommentA, file.Append("note", 5));
    ASSERT_EQ(file.Finish(1234567890, Minidump::kWithFullMemory), 0);

    const CDumpReader dump(Path());
    EXPECT_EQ(dump.Header().signature, 0x504d444dU);
    EXPECT_EQ(dump.Header().version & 0xffffU, 0xa793U);
    EXPECT_EQ(dump.Header().streamCount, 1U);
    EXPECT_EQ(dump.Header().time, 1234567890U);
    EXPECT_EQ(dump.Header().flags, 2U);
    EXPECT_EQ(dump.Note(), "note");
}

TEST_F(MinidumpFile, BlocksAreAligned)
{
    CMinidumpFile file(m_file);
    EXPECT_EQ(file.Append("abc", 3).rva % 8, 0U);
    EXPECT_EQ(file.Append("abc", 3).rva % 8, 0U);
    EXPECT_EQ(file.Reserve(1).rva % 8, 0U);
}

TEST_F(MinidumpFile, StringsAreUtf16)
{
    const struct
    {
        const char* text;
        std::vector<std::uint16_t> units;
    } cases[] = {
        {"", {}},
        {"a/b", {'a', '/', 'b'}},
        {"\xc3\xbc", {0xfc}},
        {"\xe2\x82\xac", {0x20ac}},
        {"\xf0\x9f\x98\x80", {0xd83d, 0xde00}},
        {"\xff!", {0xfffd, '!'}},
        {"\xe2\x82", {0xfffd, 0xfffd}},
    };
    for (const auto& one : cases)
    {
        SCOPED_TRACE(one.text);
        CMinidumpFile file(m_file);
        const std::uint32_t rva = file.AppendString(one.text);
        ASSERT_EQ(file.Finish(0, 0), 0);
        const CDumpReader dump(Path());
        ASSERT_EQ(dump.At<std::uint32_t>(rva), one.units.size() * 2);
        for (std::size_t i = 0; i < one.units.size(); i++)
            EXPECT_EQ(dump.At<std::uint16_t>(rva + 4 + i * 2), one.units[i]);
        EXPECT_EQ(dump.At<std::uint16_t>(rva + 4 + one.units.size() * 2), 0);
    }
}

TEST_F(MinidumpFile, LongStringIsCut)
{
    CMinidumpFile file(m_file);
    const std::uint32_t rva = file.AppendString(
        std::string(CMinidumpFile::kMaxString * 2, 'x').c_str());
    ASSERT_EQ(file.Finish(0, 0), 0);
    EXPECT_EQ(CDumpReader(Path()).String(rva).size(),
              CMinidumpFile::kMaxString);
}

TEST_F(MinidumpFile, ZerosBecomeAHoleOfTheRightLength)
{
    const std::vector<char> zeros(1 << 20);
    CMinidumpFile file(m_file);
    const std::uint64_t start = file.Position();
    file.AppendRaw(zeros.data(), zeros.size());
    file.AppendRaw("end", 3);
    file.AppendRaw(zeros.data(), zeros.size());
    ASSERT_EQ(file.Finish(0, 0), 0);

    struct stat facts = {};
    ASSERT_EQ(fstat(m_file, &facts), 0);
    EXPECT_EQ(static_cast<std::uint64_t>(facts.st_size),
              start + 2 * zeros.size() + 3);
    EXPECT_LT(facts.st_blocks * 512, 65536);
    EXPECT_EQ(CDumpReader(Path()).At<char>(start + zeros.size() + 1), 'n');
}

TEST_F(MinidumpFile, FirstErrorSticks)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    CMinidumpFile file(full);
    file.Append("abc", 3);
    EXPECT_EQ(file.Error(), ENOSPC);
    EXPECT_EQ(file.Finish(0, 0), ENOSPC);
    close(full);
}

TEST_F(MinidumpFile, WhatNoLocationReachesIsAnError)
{
    CMinidumpFile file(m_file);
    file.Reserve(UINT32_MAX - 4096);
    EXPECT_EQ(file.Error(), 0);
    file.Reserve(8192);
    EXPECT_EQ(file.Error(), EFBIG);
}
