// SPDX-License-Identifier: Apache-2.0
//
// The pid file: a decimal process id and a newline, mode 0644.
//
// The file is replaced by rename and never written or read through a symbolic
// link, so a reader sees the old content or the new one, whole.
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
/// \return false when the file could not be written; the reason is logged.
KZA_API bool WritePidFile(const wxString& path);

/// Appended to a pid file's name, the name of the file by which it is claimed.
inline constexpr char kClaimSuffix[] = ".lock";

/// The exclusive right to read a pid file and to write its new content. Of
/// several processes that start at once, one at a time has the claim.
///
/// The claim is a lock on `<path>.lock`; that file exists only while the claim
/// does. A forked child inherits the claim: it lasts until one of the processes
/// that share it gives it up, or until the last of them has ended.
class KZA_API CPidFileClaim
{
public:
    /// Waits, up to ten seconds, until no other process has the claim. Where
    /// the lock file cannot be made, or cannot be locked for another reason,
    /// the constructor returns at once without a claim; a refused lock is
    /// logged.
    explicit CPidFileClaim(const wxString& path);

    /// Gives the claim up. A parent whose child is to keep the claim leaves
    /// through exit(), which does not run this destructor.
    ~CPidFileClaim();

    CPidFileClaim(const CPidFileClaim&) = delete;
    CPidFileClaim& operator=(const CPidFileClaim&) = delete;

    /// True when another process kept the claim all the time.
    [[nodiscard]] bool IsTaken() const { return m_taken; }

    /// Gives the claim up for all processes that share it; a second call does
    /// nothing.
    void Release();

private:
    enum class EAttempt
    {
        Done,    // locked, or no lock is possible
        Taken,   // another process holds the lock
        Replaced // its last holder has removed the file meanwhile
    };

    EAttempt TryLock();
    EAttempt Abandon(EAttempt attempt);
    EAttempt GoOnWithoutLock();

    std::string m_lockFile;
    int m_fd = -1;
    bool m_taken = false;
};

} // namespace KzaCore
