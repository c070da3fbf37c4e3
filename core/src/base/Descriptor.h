// SPDX-License-Identifier: Apache-2.0
//
// Owner of a file descriptor.
//
// Threads: one object belongs to one thread at a time.

#pragma once

#include <unistd.h>

#include <utility>

namespace KzaCore
{

class CDescriptor
{
public:
    CDescriptor() = default;
    explicit CDescriptor(int fd) : m_fd(fd) {}
    ~CDescriptor() { Close(); }

    CDescriptor(CDescriptor&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1))
    {
    }

    CDescriptor& operator=(CDescriptor&& other) noexcept
    {
        if (this != &other)
        {
            Close();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }

    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    [[nodiscard]] bool IsOpen() const { return m_fd >= 0; }
    [[nodiscard]] int Get() const { return m_fd; }

    /// Leaves the descriptor open for another owner.
    void Disown() { m_fd = -1; }

    /// Closes it now.
    ///
    /// \return false with errno set when the system reports a late error of
    ///         a write.
    bool Close() { return m_fd < 0 || close(std::exchange(m_fd, -1)) == 0; }

private:
    int m_fd = -1;
};

} // namespace KzaCore
