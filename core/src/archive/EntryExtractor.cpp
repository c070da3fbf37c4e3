// SPDX-License-Identifier: Apache-2.0

#include "archive/EntryExtractor.h"

#include "archive/PieceWriter.h"
#include "base/Error.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>

namespace KzaCore
{

namespace
{

constexpr std::size_t kBufferSize = 4 << 20;

// The size of one read of an entry that does not fit into the buffer.
constexpr std::size_t kPiece = 256 << 10;
static_assert(kPiece + CPieceWriter::kBufferSize <= kBufferSize);

constexpr char kWrongChecksum[] = "its checksum is wrong";
constexpr char kDamaged[] = "its compressed data are damaged";

// One raw deflate stream; the destructor frees it.
class CStream
{
public:
    CStream() : m_isGood(inflateInit2(&m_stream, -MAX_WBITS) == Z_OK) {}
    ~CStream()
    {
        if (m_isGood)
            inflateEnd(&m_stream);
    }

    CStream(const CStream&) = delete;
    CStream& operator=(const CStream&) = delete;

    [[nodiscard]] bool IsGood() const { return m_isGood; }
    [[nodiscard]] z_stream& Get() { return m_stream; }

private:
    z_stream m_stream = {};
    bool m_isGood;
};

} // namespace

CEntryExtractor::CEntryExtractor(const CZipFile& archive) : m_archive(archive)
{
}

bool CEntryExtractor::Extract(const CZipEntry& entry,
                              std::uint64_t data,
                              int file,
                              std::string& error)
{
    if (!m_buffer)
        m_buffer.reset(new unsigned char[kBufferSize]);
    if (entry.method == CZipEntry::kStored)
        return CopyStored(entry, data, file, error);
    if (entry.size <= kBufferSize &&
        entry.compressedSize <= kBufferSize - entry.size)
        return ExtractWhole(entry, data, file, error);
    return InflateInPieces(entry, data, file, error);
}

bool CEntryExtractor::ExtractWhole(const CZipEntry& entry,
                                   std::uint64_t data,
                                   int file,
                                   std::string& error)
{
    const auto packedSize = static_cast<std::size_t>(entry.compressedSize);
    const auto size = static_cast<std::size_t>(entry.size);
    unsigned char* const packed = m_buffer.get();
    unsigned char* const plain = packed + packedSize;
    if (!m_archive.ReadAt(data, packed, packedSize, error))
        return false;
    if (!m_inflater.Inflate(packed, packedSize, plain, size))
        return Fail(error, kDamaged);
    if (Crc32(0, plain, size) != entry.crc)
        return Fail(error, kWrongChecksum);
    return WriteAll(file, plain, size, error);
}

bool CEntryExtractor::CopyStored(const CZipEntry& entry,
                                 std::uint64_t data,
                                 int file,
                                 std::string& error)
{
    std::uint32_t crc = 0;
    for (std::uint64_t left = entry.size; left > 0;)
    {
        const auto piece =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece));
        if (!m_archive.ReadAt(data, m_buffer.get(), piece, error) ||
            !WriteAll(file, m_buffer.get(), piece, error))
            return false;
        crc = Crc32(crc, m_buffer.get(), piece);
        data += piece;
        left -= piece;
    }
    return crc == entry.crc || Fail(error, kWrongChecksum);
}

bool CEntryExtractor::InflateInPieces(const CZipEntry& entry,
                                      std::uint64_t data,
                                      int file,
                                      std::string& error)
{
    CStream owner;
    z_stream& stream = owner.Get();
    if (!owner.IsGood())
        return Fail(error, "memory is short");
    CPieceWriter writer(file, m_buffer.get() + kPiece);
    std::uint64_t packedLeft = entry.compressedSize;
    std::uint64_t left = entry.size;
    std::uint32_t crc = 0;
    int result = Z_OK;
    while (result != Z_STREAM_END)
    {
        if (stream.avail_in == 0 && packedLeft > 0)
        {
            const auto piece = static_cast<std::size_t>(
                std::min<std::uint64_t>(packedLeft, kPiece));
            if (!m_archive.ReadAt(data, m_buffer.get(), piece, error))
                return false;
            stream.next_in = m_buffer.get();
            stream.avail_in = static_cast<uInt>(piece);
            data += piece;
            packedLeft -= piece;
        }
        stream.next_out = writer.NextPiece();
        if (stream.next_out == nullptr)
            return writer.Finish(crc, error);
        stream.avail_out = CPieceWriter::kPieceSize;
        result = inflate(&stream, Z_NO_FLUSH);
        const std::size_t made = CPieceWriter::kPieceSize - stream.avail_out;
        if ((result != Z_OK && result != Z_STREAM_END) || made > left)
            return Fail(error, kDamaged);
        left -= made;
        writer.Write(made);
    }
    if (!writer.Finish(crc, error))
        return false;
    if (left > 0 || packedLeft > 0 || stream.avail_in > 0)
        return Fail(error, kDamaged);
    return crc == entry.crc || Fail(error, kWrongChecksum);
}

} // namespace KzaCore
