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
    /// What became of a look at a directory.
    enum class ELook
    {
        There,
        Missing, ///< nothing, or no directory, is in its place
        Refused  ///< its path leads outside, or cannot be walked
    };

    /// Opens the destination if it is there; makes nothing.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The destination without links in its path.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Looks for a directory, which must lie inside as far as it exists.
    /// Before RemoveLeftovers(), notes what an interrupted earlier run has left
    /// in it. Cheapest when entries of one directory come together.
    ///
    /// \param directory  Plain relative path of at most kMaxLevels components,
    ///                   empty for the destination.
    /// \param error      Set to the reason when the answer is Refused.
    [[nodiscard]] ELook Look(std::string_view directory, std::string& error);

    /// Descriptor of what is there of the directory looked for last: itself or
    /// the nearest one above it. Good until the next call.
    [[nodiscard]] int Nearest() const;

    /// Makes the destination when it is missing. Comes before Enter().
    [[nodiscard]] bool Make(std::string& error);

    /// Removes what Look() has noted. Once per object.
    void RemoveLeftovers();

    /// Opens a directory, made with all above it when missing.
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

    std::string m_given; // path of the destination as Open() got it
    std::string m_path;
    bool m_isMissing = false;

    // The destination or, while it is missing, the nearest directory above it.
    CDescriptor m_root;

    std::vector<CLevel> m_levels; // the directories from m_root to the last one
    std::vector<std::string> m_leftovers; // full paths

    // Hashes of the directories that were searched last, each in its slot.
    std::vector<std::uint64_t> m_searched;
    bool m_isSearching = true; // until RemoveLeftovers()
};

/// The name under which a file of this process is written beside its place.
[[nodiscard]] std::string TemporaryName();

} // namespace KzaCore
