// SPDX-License-Identifier: Apache-2.0

#include "support/Zip.h"

#include <zlib.h>

#include <random>
#include <stdexcept>

namespace TestSupport
{

namespace
{

// One entry as its headers tell of it.
struct CRecord
{
    std::uint16_t flags;
    std::uint16_t method;
    std::uint32_t crc;
    std::uint64_t packedSize;
    std::uint64_t size;
    std::uint64_t offset;
};

constexpr std::uint64_t kFull32 = 0xFFFFFFFF;

void Put(std::string& out, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(value >> (8 * i) & 0xFF);
}

std::string Deflate(const std::string& plain)
{
    z_stream stream = {};
    if (deflateInit2(&stream, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK)
        throw std::runtime_error("no deflate");
    std::string out(deflateBound(&stream, plain.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(plain.data()));
    stream.avail_in = static_cast<uInt>(plain.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

std::uint32_t CrcOf(const std::string& plain)
{
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(plain.data()),
              static_cast<uInt>(plain.size())));
}

std::string LocalHeader(const CZipInput& file, const CRecord& record)
{
    const std::string name = file.localName.value_or(file.name);
    const std::uint64_t size =
        file.sizesFollow ? 0 : file.localSize.value_or(record.size);
    const std::uint64_t packedSize = file.sizesFollow ? 0 : record.packedSize;
    std::string out;
    Put(out, 0x04034b50, 4);
    Put(out, file.zip64 ? 45 : 20, 2);
    Put(out, record.flags, 2);
    Put(out, file.localMethod.value_or(record.method), 2);
    Put(out, 0x5A215A21, 4);
    Put(out, file.sizesFollow ? 0 : file.localCrc.value_or(record.crc), 4);
    Put(out, file.zip64 ? kFull32 : packedSize, 4);
    Put(out, file.zip64 ? kFull32 : size, 4);
    Put(out, name.size(), 2);
    Put(out, file.zip64 ? 20 : 0, 2);
    out += name;
    if (file.zip64)
    {
        Put(out, 0x0001, 2);
        Put(out, 16, 2);
        Put(out, size, 8);
        Put(out, packedSize, 8);
    }
    return out;
}

std::string DirectoryRecord(const CZipInput& file, const CRecord& record)
{
    const std::size_t zip64Size = file.zip64Disk ? 28 : 24;
    std::string out;
    Put(out, 0x02014b50, 4);
    Put(out, 20, 1);
    Put(out, file.system, 1);
    Put(out, file.zip64 ? 45 : 20, 2);
    Put(out, record.flags, 2);
    Put(out, record.method, 2);
    Put(out, 0x5A215A21, 4);
    Put(out, record.crc, 4);
    Put(out, file.zip64 ? kFull32 : file.packedSize.value_or(record.packedSize),
        4);
    Put(out, file.zip64 ? kFull32 : record.size, 4);
    Put(out, file.name.size(), 2);
    Put(out, file.zip64 ? 4 + zip64Size : 0, 2);
    Put(out, 0, 2);
    Put(out, file.zip64Disk ? 0xFFFF : file.diskNumber.value_or(0), 2);
    Put(out, 0, 2);
    Put(out, static_cast<std::uint64_t>(file.mode) << 16, 4);
    Put(out, file.zip64 ? kFull32 : file.offset.value_or(record.offset), 4);
    out += file.name;
    if (file.zip64)
    {
        Put(out, 0x0001, 2);
        Put(out, zip64Size, 2);
        Put(out, record.size, 8);
        Put(out, file.packedSize.value_or(record.packedSize), 8);
        Put(out, file.offset.value_or(record.offset), 8);
        if (file.zip64Disk)
            Put(out, *file.zip64Disk, 4);
    }
    return out;
}

void PutEnd(std::string& out,
            std::uint64_t start,
            std::size_t count,
            const CZipOptions& options)
{
    const std::uint64_t end = out.size();
    if (options.zip64End)
    {
        Put(out, 0x06064b50, 4);
        Put(out, 44, 8);
        Put(out, 45, 2);
        Put(out, 45, 2);
        Put(out, options.disk, 4);
        Put(out, options.disk, 4);
        Put(out, count, 8);
        Put(out, count, 8);
        Put(out, end - start, 8);
        Put(out, start, 8);
        Put(out, 0x07064b50, 4);
        Put(out, 0, 4);
        Put(out, end, 8);
        Put(out, 1, 4);
    }
    Put(out, 0x06054b50, 4);
    Put(out, options.fullDisks ? kFull32 : 0, 4);
    Put(out, options.zip64End ? 0xFFFF : count, 2);
    Put(out, options.zip64End ? 0xFFFF : count, 2);
    Put(out, options.zip64End ? kFull32 : end - start, 4);
    Put(out, options.zip64End ? kFull32 : start, 4);
    Put(out, options.comment.size(), 2);
    out += options.comment;
}

} // namespace

std::string MakeZip(const std::vector<CZipInput>& files,
                    const CZipOptions& options)
{
    std::string out = options.before;
    std::string directory;
    for (const CZipInput& file : files)
    {
        const std::string packed = file.packed.value_or(
            file.deflate ? Deflate(file.content) : file.content);
        CRecord record = {};
        record.flags = static_cast<std::uint16_t>(
            file.flags | (file.sizesFollow ? 0x0008 : 0));
        record.method = file.method.value_or(
            static_cast<std::uint16_t>(file.deflate ? 8 : 0));
        record.crc = file.crc.value_or(CrcOf(file.content));
        record.packedSize = packed.size();
        record.size = file.size.value_or(file.content.size());
        record.offset = out.size();

        out += LocalHeader(file, record) + packed;
        if (file.sizesFollow)
        {
            Put(out, 0x08074b50, 4);
            Put(out, record.crc, 4);
            Put(out, record.packedSize, file.zip64 ? 8 : 4);
            Put(out, record.size, file.zip64 ? 8 : 4);
        }
        directory += DirectoryRecord(file, record);
    }
    const std::uint64_t start = out.size();
    out += directory;
    PutEnd(out, start, files.size(), options);
    return out;
}

CZipInput ZipDirectory(const std::string& name, mode_t mode)
{
    CZipInput directory;
    directory.name = name;
    directory.mode = mode;
    directory.deflate = false;
    return directory;
}

std::string Noise(std::size_t size, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string Prose(std::size_t size, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size)
        text += "word" + std::to_string(random() % 5000) +
                (random() % 8 == 0 ? "\n" : " ");
    text.resize(size);
    return text;
}

} // namespace TestSupport
