// SPDX-License-Identifier: Apache-2.0
//
// The space that an archive needs on the file systems of its destination.
//
// Asking before the first file is written spares the other users of a file
// system that would be filled in vain.
//
// Threads: one object belongs to one thread.

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KzaCore
{

class CUnzipRoom
{
public:
    /// Chooses the file system for the next calls of Add(). One whose free
    /// space is unknown counts as large enough for everything.
    ///
    /// \param directory  Descriptor of a directory on it.
    void ChooseFileSystem(int directory);

    /// Adds a file of this size. ChooseFileSystem() comes first.
    void Add(std::uint64_t size);

    /// \param error  Set to the reason when a file system has too little room.
    [[nodiscard]] bool IsThere(std::string& error) const;

private:
    struct CFileSystem
    {
        dev_t device;
        std::uint64_t free;
        std::uint64_t needed;
    };

    std::vector<CFileSystem> m_fileSystems;
    std::size_t m_chosen = 0;
};

} // namespace KzaCore
