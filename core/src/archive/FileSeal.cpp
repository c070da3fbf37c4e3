// SPDX-License-Identifier: Apache-2.0

#include "archive/FileSeal.h"

#include "base/Error.h"
#include "base/WholeTransfer.h"
#include "kza_core/OpenedFile.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace KzaCore
{

namespace
{

constexpr std::uint64_t kPiece = 64 << 10;

constexpr char kNoDigest[] = "its signature cannot be checked: no SHA-256";

struct CFreeContext
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_destroy(context); }
};

using CContext = std::unique_ptr<EVP_MD_CTX, CFreeContext>;

bool DigestOf(const std::vector<unsigned char>& bytes, TDigest& digest)
{
    return EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr,
                      EVP_sha256(), nullptr) == 1;
}

} // namespace

bool CFileSeal::Make(const COpenedFile& file, std::string& error)
{
    m_size = file.Size();
    const CContext whole(EVP_MD_CTX_create());
    if (!whole || EVP_DigestInit_ex(whole.get(), EVP_sha256(), nullptr) != 1)
        return Fail(error, kNoDigest);
    for (std::uint64_t offset = 0; offset < m_size; offset += kPiece)
    {
        m_current = offset / kPiece;
        m_bytes.resize(std::min(kPiece, m_size - offset));
        errno = 0;
        if (ReadWholeAt(file.Get(), offset, m_bytes.data(), m_bytes.size()) !=
            m_bytes.size())
            return errno != 0 ? FailBySystem(error, "cannot be read")
                              : Fail(error, "the file ends too early");
        m_pieces.emplace_back();
        if (!DigestOf(m_bytes, m_pieces.back()) ||
            EVP_DigestUpdate(whole.get(), m_bytes.data(), m_bytes.size()) != 1)
            return Fail(error, kNoDigest);
    }
    return EVP_DigestFinal_ex(whole.get(), m_digest.data(), nullptr) == 1 ||
           Fail(error, kNoDigest);
}

bool CFileSeal::ReadAt(int file,
                       std::uint64_t offset,
                       void* buffer,
                       std::size_t size,
                       std::string& error)
{
    if (offset > m_size || size > m_size - offset)
        return Fail(error, "the file ends too early");
    auto* next = static_cast<unsigned char*>(buffer);
    while (size > 0)
    {
        if (!ReadPiece(file, offset / kPiece, error))
            return false;
        const auto begin = static_cast<std::size_t>(offset % kPiece);
        const std::size_t part = std::min(size, m_bytes.size() - begin);
        std::memcpy(next, m_bytes.data() + begin, part);
        next += part;
        offset += part;
        size -= part;
    }
    return true;
}

// Reads a piece of the file, unless it is the current one, and makes it so.
bool CFileSeal::ReadPiece(int file, std::uint64_t piece, std::string& error)
{
    if (piece == m_current)
        return true;
    m_current = piece;
    m_bytes.resize(std::min(kPiece, m_size - piece * kPiece));
    TDigest digest = {};
    const bool isRead = ReadWholeAt(file, piece * kPiece, m_bytes.data(),
                                    m_bytes.size()) == m_bytes.size();
    if (isRead && DigestOf(m_bytes, digest) &&
        digest == m_pieces[static_cast<std::size_t>(piece)])
        return true;
    m_current = ~std::uint64_t(0);
    return Fail(error,
                "the file was changed after its signature had been checked");
}

} // namespace KzaCore
