// SPDX-License-Identifier: Apache-2.0
//
// Starting another program with a clean signal state: an empty mask and
// default dispositions, although the agent's threads block SIGTERM and ignore
// SIGPIPE.
//
// Threads: any; one object belongs to one thread.

#pragma once

#include <string>

#include <spawn.h>
#include <sys/types.h>

namespace KzaCore
{

class CSpawn
{
public:
    CSpawn();
    ~CSpawn();

    CSpawn(const CSpawn&) = delete;
    CSpawn& operator=(const CSpawn&) = delete;

    /// Makes `fd` of the parent the child's descriptor `target`, also when
    /// the two are equal and the descriptor is closed on exec.
    void Redirect(int fd, int target);

    /// Leaves the child no descriptor from `first` up.
    void CloseFrom(int first);

    /// Starts the program.
    ///
    /// \param argv  As for execv(), argv[0] is the program's path.
    /// \param pid   Out: the child, which the caller reaps.
    ///
    /// \return 0 or the error number.
    int Start(char* const argv[], pid_t& pid);

    /// Starts `/bin/sh -c command`; otherwise as Start().
    int StartShell(const char* command, pid_t& pid);

    /// Waits for the end of a child; goes on when a signal interrupts.
    ///
    /// \return its wait status, -1 with errno set when there is none.
    static int WaitFor(pid_t pid);

private:
    posix_spawnattr_t m_attributes;
    posix_spawn_file_actions_t m_actions;
};

} // namespace KzaCore
