// SPDX-License-Identifier: Apache-2.0

#include "archive/ZipArchive.h"

#include "archive/Inflate.h"
#include "archive/ZipWalk.h"
#include "base/Error.h"
#include "base/Hash.h"
#include "base/RandomNumber.h"

#include <cstring>

namespace KzaCore
{

namespace
{

// A larger entry is not read into memory as a whole.
constexpr std::uint64_t kMaxWhole = 1ULL << 30;

} // namespace

bool CZipArchive::Open(const std::string& path, std::string& error)
{
    COpenedFile file;
    if (!file.Open(path))
        return FailBySystem(error, "cannot be opened");
    return Open(std::move(file), error);
}

bool CZipArchive::Open(COpenedFile file, std::string& error)
{
    m_seed = RandomNumber();
    if (!m_file.Open(std::move(file), nullptr, error) || !ReadDirectory(error))
    {
        m_entries.clear();
        return false;
    }
    Index();
    return true;
}

bool CZipArchive::ReadDirectory(std::string& error)
{
    m_entries.reserve(m_file.Count());
    // An upper bound costs no memory: pages that are not written are not
    // resident.
    m_names.reset(new char[m_file.MaxNames() + 1]);
    char* next = m_names.get();
    CZipWalk walk(m_file);
    while (const CZipEntry* const entry = walk.Next(error))
    {
        m_entries.push_back(*entry);
        std::string_view& name = m_entries.back().name;
        std::memcpy(next, name.data(), name.size());
        name = std::string_view(next, name.size());
        next += name.size();
    }
    return walk.IsWhole();
}

void CZipArchive::Index()
{
    std::size_t slots = 8;
    while (slots < 2 * m_entries.size())
        slots *= 2;
    m_slots.assign(slots, 0);
    for (std::size_t i = 0; i < m_entries.size(); ++i)
    {
        std::uint32_t& slot = m_slots[SlotOf(m_entries[i].name)];
        if (slot == 0) // of several entries of one name, Find() gives the first
            slot = static_cast<std::uint32_t>(i + 1);
    }
}

// The slot that holds the name, or the free one where it belongs.
std::size_t CZipArchive::SlotOf(std::string_view name) const
{
    const std::size_t mask = m_slots.size() - 1;
    std::size_t at = HashBytes(name, m_seed) & mask;
    while (m_slots[at] != 0 && m_entries[m_slots[at] - 1].name != name)
        at = (at + 1) & mask;
    return at;
}

const CZipEntry* CZipArchive::Find(std::string_view name) const
{
    const std::uint32_t found = m_slots.empty() ? 0 : m_slots[SlotOf(name)];
    return found == 0 ? nullptr : &m_entries[found - 1];
}

bool CZipArchive::Read(const CZipEntry& entry,
                       std::string& bytes,
                       std::string& error) const
{
    std::uint64_t data = 0;
    if (!m_file.Locate(entry, data, error))
        return false;
    if (entry.size > kMaxWhole || entry.compressedSize > kMaxWhole)
        return Fail(error, "too large to be read at once");

    if (entry.method == CZipEntry::kStored)
    {
        bytes.resize(entry.size);
        if (!m_file.ReadAt(data, &bytes[0], bytes.size(), error))
            return false;
    }
    else
    {
        std::vector<char> packed(entry.compressedSize);
        if (!m_file.ReadAt(data, packed.data(), packed.size(), error))
            return false;
        static thread_local CInflater inflater;
        if (!inflater.InflateGrowing(packed.data(), packed.size(), bytes,
                                     entry.size))
            return Fail(error, "damaged compressed data");
    }
    if (Crc32(0, bytes.data(), bytes.size()) != entry.crc)
        return Fail(error, "wrong checksum");
    return true;
}

} // namespace KzaCore
