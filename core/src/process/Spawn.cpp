// SPDX-License-Identifier: Apache-2.0

#include "process/Spawn.h"

#include "base/SignalSet.h"
#include "process/SpawnCloseFrom.h"

#include <cerrno>
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace KzaCore
{

CSpawn::CSpawn()
{
    posix_spawnattr_init(&m_attributes);
    posix_spawn_file_actions_init(&m_actions);

    const sigset_t blocked = SignalSet({});
    posix_spawnattr_setsigmask(&m_attributes, &blocked);
    // The dispositions of these two signals cannot be changed.
    const sigset_t defaults = AllSignalsBut({SIGKILL, SIGSTOP});
    posix_spawnattr_setsigdefault(&m_attributes, &defaults);
    posix_spawnattr_setflags(&m_attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

CSpawn::~CSpawn()
{
    posix_spawn_file_actions_destroy(&m_actions);
    posix_spawnattr_destroy(&m_attributes);
}

void CSpawn::Redirect(int fd, int target)
{
    posix_spawn_file_actions_adddup2(&m_actions, fd, target);
}

void CSpawn::CloseFrom(int first)
{
    SpawnCloseFrom(m_actions, first);
}

int CSpawn::Start(char* const argv[], pid_t& pid)
{
    return posix_spawn(&pid, argv[0], &m_actions, &m_attributes, argv, environ);
}

int CSpawn::StartShell(const char* command, pid_t& pid)
{
    static char shell[] = "/bin/sh";
    static char option[] = "-c";
    // The shell does not write to its arguments; posix_spawn() takes them
    // without const for historical reasons.
    char* const argv[] = {shell, option, const_cast<char*>(command), nullptr};
    return Start(argv, pid);
}

int CSpawn::WaitFor(pid_t pid)
{
    int status = 0;
    pid_t ended = 0;
    do
        ended = waitpid(pid, &status, 0);
    while (ended == -1 && errno == EINTR);
    return ended == pid ? status : -1;
}

} // namespace KzaCore
