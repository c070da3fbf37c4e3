// SPDX-License-Identifier: Apache-2.0
//
// The log file. Lines are appended, the file is rotated by size, and other
// processes may write to it as well.
//
// Each line is one write(2) to a file opened for appending, so lines of several
// writers never mix. The writer that finds the file full renames it, under a
// lock of its process for which no other process waits. The other writers
// notice within a second that the name belongs to another file now, and go on
// with that one.
//
// Threads: one at a time; the caller has a lock. Nothing here logs.

#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace KzaCore
{

class CLogFile
{
public:
    CLogFile() = default;
    ~CLogFile();

    CLogFile(const CLogFile&) = delete;
    CLogFile& operator=(const CLogFile&) = delete;

    /// Sets the place of the file, and closes a file at another place. The next
    /// Append() opens the file.
    ///
    /// \param directory  Made with mode 0700 when missing; its parents must
    ///                   exist. Must not be a symbolic link.
    /// \param name       Name in the directory; mode 0600.
    void SetPlace(const std::string& directory, const std::string& name);

    /// \param maxSize   Largest size of the file in bytes, zero for no limit. A
    ///                  line longer than that gets a file of its own.
    /// \param oldFiles  The number of older files that are kept, with `.1`,
    ///                  `.2` and so on appended to the name.
    void SetLimits(std::int64_t maxSize, int oldFiles);

    /// Opens the file unless it is open, at most once a second.
    ///
    /// \return zero, or the errno value that says why it cannot be opened.
    int EnsureOpen(std::time_t now);

    /// Appends a line with its newline.
    ///
    /// \param now  The present time, for the checks made once a second.
    ///
    /// \return zero, or the errno value that says why the line is lost. A part
    ///         of the line may be in the file then; the next Append() begins
    ///         with a line break.
    int Append(std::string_view line, std::time_t now);

    /// False before the first Append() and while the file cannot be opened;
    /// opening is tried again once a second.
    [[nodiscard]] bool IsOpen() const { return m_descriptor >= 0; }

    /// The errno value that says why the last rotation failed, once; else
    /// zero. The file grows meanwhile.
    int TakeRotationError();

    /// For a record made in a signal handler; -1 while not open. The number
    /// stays the same when another file takes its place. Threads: any.
    [[nodiscard]] int Descriptor() const { return m_descriptor; }

    [[nodiscard]] std::string Path() const;

private:
    int Open();
    int OpenIn(int directory);
    int UseFile(int file, const struct stat& status);
    void Close();

    void CheckName(std::time_t now);
    [[nodiscard]] bool IsNameOurs(struct stat& status) const;
    int FollowName();

    void Rotate(std::time_t now);
    bool LockFile(short type);
    int ShiftOldFiles();

    int WriteLine(std::string_view line);
    [[nodiscard]] bool WasLeftTorn() const;
    bool EndsInMidLine(struct stat& status) const;

    // Set by SetPlace() and SetLimits().
    std::string m_directory;
    std::string m_name;
    std::int64_t m_maxSize = 0;
    int m_oldFiles = 0;
    std::int64_t m_checkBytes = 0; // between two checks of the name

    // The file in use.
    std::atomic<int> m_descriptor{-1};
    std::int64_t m_size = 0; // at the last check, and own lines since
    bool m_isTorn = false;   // it may end in the middle of a line

    // The last check of the name.
    std::time_t m_checkedAt = 0;
    std::int64_t m_sinceCheck = 0; // bytes of own lines
    int m_openError = 0;           // valid while there is no descriptor

    // The last rotation.
    int m_rotationError = 0;
    bool m_isRotationErrorTold = false;
    std::time_t m_rotationFailedAt = 0;
};

} // namespace KzaCore
