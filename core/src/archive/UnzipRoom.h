// SPDX-License-Identifier: Apache-2.0
//
// The room that an archive needs on the file systems that its files go to.
//
// Filling a file system only to find that it is full would hurt everything
// else on it.
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
    /// Chooses the file system of the sizes that follow; one whose free space
    /// cannot be had has room for everything.
    ///
    /// \param directory  Descriptor of a directory on it.
    void ChooseFileSystem(int directory);

    /// Takes note of a file. ChooseFileSystem() comes first.
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
