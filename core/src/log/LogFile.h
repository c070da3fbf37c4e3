// SPDX-License-Identifier: Apache-2.0
//
// The file behind the log: appended to, rotated by size, shared with other
// processes.
//
// Any number of processes may write to the same place. Each line is one
// write(2) to a file opened for appending, so lines of several writers never
// mix. The writer that finds the file full renames it, under a lock that
// belongs to its process and is never waited for; the others notice within a
// second that the name stands for another file now and follow.
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

    /// Where the file is; leaves the place before. The file is opened by the
    /// next Append().
    ///
    /// \param directory  Made with mode 0700 when missing, its parents are
    ///                   not. Must not be a symbolic link.
    /// \param name       Name in the directory; mode 0600.
    void SetPlace(const std::string& directory, const std::string& name);

    /// \param maxSize   Bytes that a line must not make the file outgrow; zero
    ///                  for no end. A longer line has a file for itself.
    /// \param oldFiles  How many older files are kept beside it, as `.1`, `.2`
    ///                  and so on.
    void SetLimits(std::int64_t maxSize, int oldFiles);

    /// Opens the file unless it is open, at most once a second.
    ///
    /// \return zero, or the errno value that says why it cannot be opened.
    int EnsureOpen(std::time_t now);

    /// Appends a line with its newline.
    ///
    /// \param now  The present time, for what is looked at once a second.
    ///
    /// \return zero, or the errno value that says why the line is lost. A
    ///         part of it may be in the file then; the next line starts anew.
    int Append(std::string_view line, std::time_t now);

    /// False before the first Append() and while the file cannot be opened,
    /// which is tried again once a second.
    [[nodiscard]] bool IsOpen() const { return m_descriptor >= 0; }

    /// The errno value that says why the last rotation failed, once; else
    /// zero. The file grows meanwhile.
    int TakeRotationError();

    /// For a record made in a signal handler; -1 while not open. The number
    /// stays the same while the file behind it changes. Threads: any.
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

    // What SetPlace() and SetLimits() said.
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
