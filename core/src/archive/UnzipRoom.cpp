// SPDX-License-Identifier: Apache-2.0

#include "archive/UnzipRoom.h"

#include "base/Error.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <limits>

namespace KzaCore
{

namespace
{

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

// A file system that a program provides may report no size at all.
std::uint64_t FreeSpace(int directory)
{
    struct statvfs status = {};
    if (fstatvfs(directory, &status) != 0 || status.f_blocks == 0)
        return kMost;
    return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

} // namespace

void CUnzipRoom::ChooseFileSystem(int directory)
{
    struct stat status = {};
    fstat(directory, &status);
    const auto known =
        std::find_if(m_fileSystems.begin(), m_fileSystems.end(),
                     [&](const CFileSystem& fileSystem)
                     { return fileSystem.device == status.st_dev; });
    m_chosen = static_cast<std::size_t>(known - m_fileSystems.begin());
    if (known == m_fileSystems.end())
        m_fileSystems.push_back({status.st_dev, FreeSpace(directory), 0});
}

void CUnzipRoom::Add(std::uint64_t size)
{
    std::uint64_t& needed = m_fileSystems[m_chosen].needed;
    needed += std::min(size, kMost - needed);
}

bool CUnzipRoom::IsThere(std::string& error) const
{
    const auto full =
        std::find_if(m_fileSystems.begin(), m_fileSystems.end(),
                     [](const CFileSystem& fileSystem)
                     { return fileSystem.needed > fileSystem.free; });
    if (full == m_fileSystems.end())
        return true;
    return Fail(error, "its files need " + std::to_string(full->needed) +
                           " bytes where " + std::to_string(full->free) +
                           " are free");
}

} // namespace KzaCore
