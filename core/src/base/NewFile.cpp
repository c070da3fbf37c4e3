// SPDX-License-Identifier: Apache-2.0

#include "base/NewFile.h"

#include "base/WholeTransfer.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{

CNewFile::~CNewFile()
{
    if (!m_isToRemove)
        return;
    const int reason = errno;
    unlink(m_path.c_str());
    errno = reason;
}

bool CNewFile::Make(const std::string& path, mode_t mode)
{
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    m_path = path;
    m_file = CDescriptor(open(path.c_str(), kFlags, mode));
    m_isToRemove = m_file.IsOpen();
    return m_file.IsOpen();
}

bool CNewFile::Write(std::string_view bytes) const
{
    return WriteWhole(m_file.Get(), bytes.data(), bytes.size()) == bytes.size();
}

bool CNewFile::Finish()
{
    m_isToRemove = !m_file.Close();
    return !m_isToRemove;
}

bool WriteNewFile(const std::string& path, std::string_view bytes, mode_t mode)
{
    CNewFile file;
    return file.Make(path, mode) && fchmod(file.Get(), mode) == 0 &&
           file.Write(bytes) && file.Finish();
}

} // namespace KzaCore
