// SPDX-License-Identifier: Apache-2.0
//
// The directory that an archive is unpacked into, and its confinement.
//
// Every path is walked component by component from a descriptor of the
// destination, so that a change of the directories meanwhile cannot lead a
// write outside. A symbolic link is followed only when it ends inside.
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
    /// The answer to a look at a directory.
    enum class ELook
    {
        There,
        Missing, ///< its place is empty or holds something else
        Refused  ///< its path leads outside, or cannot be walked
    };

    /// Opens the destination if it exists; makes nothing.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The destination without links in its path.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Looks for a directory. The existing part of its path must lie inside the
    /// destination. Before RemoveLeftovers(), notes the temporary files that an
    /// interrupted earlier run has left in it. Cheapest when entries of one
    /// directory come together.
    ///
    /// \param directory  Plain relative path of at most kMaxLevels components,
    ///                   empty for the destination.
    /// \param error      Set to the reason when the answer is Refused.
    [[nodiscard]] ELook Look(std::string_view directory, std::string& error);

    /// Descriptor of the directory that was looked for last or, where it is
    /// missing, of the nearest existing one above it. Good until the next call.
    [[nodiscard]] int Nearest() const;

    /// Makes the destination when it is missing. Comes before Enter().
    [[nodiscard]] bool Make(std::string& error);

    /// Removes the files that Look() has noted. Once per object.
    void RemoveLeftovers();

    /// Opens a directory. Makes it, and all directories above it, when missing.
    ///
    /// \return a descriptor that is good until the next call; -1 with the
    ///         reason after a failure.
    [[nodiscard]] int Enter(std::string_view directory, std::string& error);

private:
    struct CLevel
    {
        std::string name;
        CDescriptor directory;
    };

    bool OpenRoot(std::string& error);
    ELook Walk(std::string_view directory, bool make, std::string& error);
    ELook Step(std::string_view name,
               bool make,
               CDescriptor& next,
               std::string& error);
    ELook StepThroughLink(std::string_view name,
                          CDescriptor& next,
                          std::string& error);
    [[nodiscard]] std::string NearestPath() const;
    [[nodiscard]] bool IsNew(std::string_view directory);
    void NoteLeftovers();

    std::string m_given; // path of the destination as passed to Open()
    std::string m_path;
    bool m_isMissing = false;

    // The destination or, while it is missing, the nearest directory above it.
    CDescriptor m_root;

    std::vector<CLevel> m_levels; // the directories from m_root to the last one
    std::vector<std::string> m_leftovers; // full paths

    // Hashes of the directories that were searched for leftovers last, each in
    // its slot.
    std::vector<std::uint64_t> m_searched;
    bool m_isSearching = true; // until RemoveLeftovers()
};

/// A new name for a temporary file of this process. A file is written under it
/// in the directory of its final name and then renamed.
[[nodiscard]] std::string TemporaryName();

} // namespace KzaCore
