// SPDX-License-Identifier: Apache-2.0
//
// The directory that an archive is unpacked into, and its confinement.
//
// Every path is walked component by component from a descriptor of the
// destination, so that nothing that changes meanwhile can lead a write
// outside. A symbolic link is followed only when it ends inside.
//
// Threads: one object belongs to one thread.

#pragma once

#include "base/Descriptor.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

class CUnzipDestination
{
public:
    /// Opens the destination; makes it when it is missing.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The destination without links in its path.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Checks that a directory, as far as it exists, lies inside, and, before
    /// RemoveLeftovers(), notes what an interrupted earlier run has left in it.
    /// Cheapest when what lies in one directory comes together.
    ///
    /// \param directory  Plain relative path, empty for the destination.
    /// \param error      Set to the reason after a failure.
    [[nodiscard]] bool Check(std::string_view directory, std::string& error);

    /// Removes what Check() has noted. Once per object.
    void RemoveLeftovers();

    /// Opens a directory, made with all above it when missing.
    ///
    /// \return a descriptor that is good until the next call; -1 with the
    ///         reason after a failure.
    [[nodiscard]] int Enter(std::string_view directory, std::string& error);

private:
    struct SLevel
    {
        std::string name;
        CDescriptor directory;
    };

    enum class EStep
    {
        Done,
        Missing,
        Failed
    };

    EStep Walk(std::string_view directory, bool make, std::string& error);
    EStep Step(std::string_view name,
               bool make,
               CDescriptor& next,
               std::string& error);
    EStep StepThroughLink(std::string_view name,
                          CDescriptor& next,
                          std::string& error);
    [[nodiscard]] int Top() const;
    [[nodiscard]] std::string TopPath() const;
    [[nodiscard]] bool IsNew(std::string_view directory);
    void NoteLeftovers();

    std::string m_path;
    CDescriptor m_root;
    std::vector<SLevel> m_levels; // the directories from m_root to the last one
    std::vector<std::string> m_leftovers; // full paths

    // Hashes of the directories that were searched last, each in its slot.
    std::vector<std::uint64_t> m_searched;
    bool m_isSearching = true; // until RemoveLeftovers()
};

/// The name under which a file of this process is written beside its place.
[[nodiscard]] std::string TemporaryName();

} // namespace KzaCore
