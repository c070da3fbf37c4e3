// SPDX-License-Identifier: Apache-2.0

#include "kza_core/OpenedFile.h"

#include "base/Descriptor.h"
#include "base/SameFile.h"

#include <fcntl.h>

#include <utility>

namespace KzaCore
{

namespace
{

constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

} // namespace

COpenedFile::~COpenedFile()
{
    CDescriptor(m_descriptor).Close();
}

COpenedFile::COpenedFile(COpenedFile&& other) noexcept
{
    *this = std::move(other);
}

COpenedFile& COpenedFile::operator=(COpenedFile&& other) noexcept
{
    std::swap(m_path, other.m_path);
    std::swap(m_descriptor, other.m_descriptor);
    std::swap(m_status, other.m_status);
    return *this;
}

bool COpenedFile::Open(const std::string& path)
{
    return Take(open(path.c_str(), kFlags), path);
}

bool COpenedFile::OpenAt(int directory,
                         const char* name,
                         const std::string& path)
{
    return Take(openat(directory, name, kFlags | O_NOFOLLOW), path);
}

// Becomes the owner of what was just opened.
bool COpenedFile::Take(int descriptor, const std::string& path)
{
    CDescriptor opened(descriptor);
    struct stat status = {};
    if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0)
        return false;
    CDescriptor(m_descriptor).Close();
    m_path = path;
    m_descriptor = opened.Get();
    m_status = status;
    opened.Disown();
    return true;
}

bool COpenedFile::IsInPlace() const
{
    struct stat now = {};
    return stat(m_path.c_str(), &now) == 0 && IsSameFile(now, m_status) &&
           now.st_size == m_status.st_size &&
           now.st_mtim.tv_sec == m_status.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == m_status.st_mtim.tv_nsec;
}

} // namespace KzaCore
