// SPDX-License-Identifier: Apache-2.0

#include "service/Daemon.h"

#include "base/ProcessAlive.h"
#include "kza_core/PidFile.h"

#include <wx/log.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <unistd.h>

namespace
{

constexpr int kExitPresent = 1;
constexpr int kExitRefused = 1;

// A user who can write the pid file keeps the agent from starting, and lets
// scripts stop whatever process it names.
bool IsOwnerRight(const wxString& pidFile, KzaCore::EOwnerRule owners)
{
    const std::string path(pidFile.fn_str());
    KzaCore::TChangeable changeable;
    KzaCore::JudgePath(path, changeable);
    KzaCore::JudgePath(path + KzaCore::kClaimSuffix, changeable);
    return KzaCore::Tolerate(changeable, owners);
}

// True when a live process owns the pid file.
bool IsOwned(const wxString& pidFile)
{
    const int pid = KzaCore::ReadPidFile(pidFile);
    if (pid == 0)
        return false;
    if (KzaCore::IsProcessAlive(pid))
        return true;
    wxLogVerbose("%.128s present (pid=%d), but doesn't seem to be running.",
                 pidFile, pid);
    return false;
}

// Forks and goes on in the child; the parent ends. False when the fork failed.
// The C library's buffers are flushed before, because both processes would
// write their content.
bool GoOnInChild()
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child > 0)
        exit(0);
    return child == 0;
}

void EnterWorkingDirectory(const wxString& path)
{
    [[maybe_unused]] const int ignored = chdir(path.mb_str());
}

void LeaveTerminal()
{
    for (const auto& [stream, mode] :
         {std::pair{stdin, "r"}, {stdout, "w"}, {stderr, "w"}})
    {
        [[maybe_unused]] FILE* const ignored =
            freopen("/dev/null", mode, stream);
    }
}

} // namespace

bool Daemonize(const wxString& pidFile,
               const wxString& workingDirectory,
               KzaCore::EOwnerRule owners)
{
    if (!IsOwnerRight(pidFile, owners))
        exit(kExitRefused);
    KzaCore::CPidFileClaim claim(pidFile);
    if (claim.IsTaken() || IsOwned(pidFile))
    {
        wxLogError("%.128s present, exiting", pidFile);
        claim.Release();
        exit(kExitPresent);
    }

    if (!GoOnInChild())
    {
        wxLogSysError("Unable to fork");
        return false;
    }
    setsid();
    EnterWorkingDirectory(workingDirectory);
    if (!GoOnInChild())
    {
        wxLogSysError("Unable to do 2nd fork");
        return false;
    }
    LeaveTerminal();
    KzaCore::WritePidFile(pidFile);
    return true;
}
