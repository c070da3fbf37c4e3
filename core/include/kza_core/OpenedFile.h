// SPDX-License-Identifier: Apache-2.0
//
// A file that is held open, to tell it from another file that takes its name
// later.
//
// While the file is open, the system gives its inode number to no other file.
// IsInPlace() therefore notices that the file has been renamed, replaced or
// rewritten.
//
// Threads: one object belongs to one thread; several may read through its
// descriptor.

#pragma once

#include "kza_core/Export.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace KzaCore
{

class KZA_API COpenedFile
{
public:
    COpenedFile() = default;
    ~COpenedFile();

    COpenedFile(COpenedFile&& other) noexcept;
    COpenedFile& operator=(COpenedFile&& other) noexcept;

    COpenedFile(const COpenedFile&) = delete;
    COpenedFile& operator=(const COpenedFile&) = delete;

    /// Opens for reading and remembers the file's status. Follows symbolic
    /// links; waits neither for a pipe's writer nor for a device.
    ///
    /// \param path  As the system takes it.
    ///
    /// \return false with errno set; nothing is open then.
    [[nodiscard]] bool Open(const std::string& path);

    /// The same for a name in a directory. A symbolic link is a failure.
    ///
    /// \param directory  Open, or AT_FDCWD.
    /// \param name       There; with AT_FDCWD a path.
    /// \param path       Leads to the file as well.
    [[nodiscard]] bool OpenAt(int directory,
                              const char* name,
                              const std::string& path);

    [[nodiscard]] bool IsOpen() const { return m_descriptor >= 0; }

    /// The descriptor, closed with the object.
    [[nodiscard]] int Get() const { return m_descriptor; }

    /// The file's status when it was opened.
    [[nodiscard]] const struct stat& Status() const { return m_status; }
    [[nodiscard]] bool IsRegular() const { return S_ISREG(m_status.st_mode); }
    [[nodiscard]] std::uint64_t Size() const
    {
        return static_cast<std::uint64_t>(m_status.st_size);
    }

    /// True while the path leads to the file that was opened, with the size and
    /// the time of its last change as they were then.
    [[nodiscard]] bool IsInPlace() const;

private:
    bool Take(int descriptor, const std::string& path);

    std::string m_path;
    int m_descriptor = -1;
    struct stat m_status = {};
};

} // namespace KzaCore
