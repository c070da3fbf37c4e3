// SPDX-License-Identifier: Apache-2.0
//
// A file that did not exist before, whole or not at all.
//
// Threads: one object belongs to one thread.

#pragma once

#include "base/Descriptor.h"

#include <string>
#include <string_view>

#include <sys/types.h>

namespace KzaCore
{

class CNewFile
{
public:
    CNewFile() = default;

    /// Removes the file unless Finish() has succeeded; leaves errno alone.
    ~CNewFile();

    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    /// Makes the file, with the mode minus the umask's bits. Once per object.
    ///
    /// \return false with errno set, EEXIST when anything has that name.
    [[nodiscard]] bool Make(const std::string& path, mode_t mode);

    /// The descriptor, for writing.
    [[nodiscard]] int Get() const { return m_file.Get(); }

    /// Appends bytes.
    ///
    /// \return false with errno set.
    [[nodiscard]] bool Write(std::string_view bytes) const;

    /// Closes the file, which then stays. A full disk may be reported as late
    /// as here.
    ///
    /// \return false with errno set.
    [[nodiscard]] bool Finish();

private:
    std::string m_path;
    CDescriptor m_file;
    bool m_isToRemove = false;
};

/// Writes a new file with exactly this mode, whatever the umask.
///
/// \return false with errno set; nothing new is left then.
[[nodiscard]] bool WriteNewFile(const std::string& path,
                                std::string_view bytes,
                                mode_t mode);

} // namespace KzaCore
