// SPDX-License-Identifier: Apache-2.0

#include "archive/PieceWriter.h"

#include "archive/Inflate.h"
#include "base/Descriptor.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <vector>

using KzaCore::CDescriptor;
using KzaCore::CPieceWriter;
using namespace TestSupport;

namespace
{

class PieceWriter : public ::testing::Test
{
protected:
    std::vector<unsigned char> m_buffer =
        std::vector<unsigned char>(CPieceWriter::kBufferSize);
};

TEST_F(PieceWriter, WritesThePiecesInOrder)
{
    const CTempDir dir;
    const std::string content = Noise(5 * CPieceWriter::kPieceSize + 77);
    const CDescriptor file(
        open(dir.File("x").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    CPieceWriter writer(file.Get(), m_buffer.data());
    for (std::size_t at = 0; at < content.size();)
    {
        unsigned char* const piece = writer.NextPiece();
        ASSERT_NE(piece, nullptr);
        const std::size_t size =
            std::min(content.size() - at, CPieceWriter::kPieceSize);
        std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(at), size,
                    piece);
        writer.Write(size);
        at += size;
    }
    std::uint32_t crc = 0;
    std::string error;
    ASSERT_TRUE(writer.Finish(crc, error));
    EXPECT_EQ(crc, KzaCore::Crc32(0, content.data(), content.size()));
    EXPECT_TRUE(ReadFile(dir.File("x")) == content);
}

TEST_F(PieceWriter, AFullDiskIsSaidOnce)
{
    const CDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    CPieceWriter writer(full.Get(), m_buffer.data());
    int pieces = 0;
    while (writer.NextPiece() != nullptr && ++pieces < 10)
        writer.Write(100);
    EXPECT_LE(pieces, 2) << "one is written while the next is made";
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_FALSE(writer.Finish(crc, error));
    EXPECT_EQ(error, "it cannot be written: No space left on device");
}

TEST_F(PieceWriter, MayBeLeftUnfinished)
{
    const CDescriptor null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    CPieceWriter writer(null.Get(), m_buffer.data());
    ASSERT_NE(writer.NextPiece(), nullptr);
    writer.Write(CPieceWriter::kPieceSize);
}

} // namespace
