// SPDX-License-Identifier: Apache-2.0
//
// The pid file: a decimal process id and a newline, mode 0644.
//
// It is replaced by rename and never written or read through a symbolic link,
// so a reader sees the old content or the new one, whole.
//
// Threads: any for the functions; a claim belongs to one thread at a time.

#pragma once

#include "kza_core/Export.h"

#include <string>

class wxString;

namespace KzaCore
{

/// The process id stored in the file, white space around the number aside; 0
/// when the file is missing, unreadable, a symbolic link, longer than 4096
/// bytes, or holds anything but one positive number.
[[nodiscard]] KZA_API int ReadPidFile(const wxString& path);

/// Records the calling process's id.
///
/// \return false when it could not; the reason is logged.
KZA_API bool WritePidFile(const wxString& path);

/// The right to decide about a pid file, from looking at it until the new
/// content is there. Of several processes that start at once, one at a time
/// has it.
///
/// The claim is a lock on `<path>.lock`, which exists only meanwhile. It is
/// inherited by fork: it lasts until a process of the family gives it up or
/// the last of them has ended.
class KZA_API CPidFileClaim
{
public:
    /// Waits, up to ten seconds, until no other process has the claim. Where
    /// the lock file cannot be made or locked for another reason there is no
    /// claim, and nothing is waited for; a refused lock is logged.
    explicit CPidFileClaim(const wxString& path);

    /// Gives the claim up. A process that leaves through exit() with the claim
    /// to be kept by its child does not come here.
    ~CPidFileClaim();

    CPidFileClaim(const CPidFileClaim&) = delete;
    CPidFileClaim& operator=(const CPidFileClaim&) = delete;

    /// True when another process kept the claim all the time.
    [[nodiscard]] bool IsTaken() const { return m_taken; }

    /// Gives the claim up for the whole family; a second call does nothing.
    void Release();

private:
    enum class EAttempt
    {
        Done,    // locked, or there is no lock to be had
        Taken,   // another process holds the lock
        Replaced // the holder removed the file as it left
    };

    EAttempt TryLock();
    EAttempt Abandon(EAttempt attempt);
    EAttempt GoOnWithoutLock();

    std::string m_lockFile;
    int m_fd = -1;
    bool m_taken = false;
};

} // namespace KzaCore
