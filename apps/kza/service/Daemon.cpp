// SPDX-License-Identifier: Apache-2.0
//
// Daemon: leave the terminal, with one agent of a name at most.
//
// Four processes take part: the launcher, which the service script waits for;
// the session leader; and the process that survives and becomes the watchdog.
// All run with one thread. The claim on the pid file is taken by the launcher
// and handed down, so that nothing can start between the look at the pid file
// and the new content in it.

#include "AgentApp.h"

#include "base/ProcessAlive.h"
#include "kza_core/Dom.h"
#include "kza_core/PidFile.h"

#include <wx/log.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace
{

constexpr int kFailed = -1;
constexpr int kExitPresent = 1;

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

// Forks and goes on in the child; the parent ends. False when there is no
// child. What lies in a buffer of the C library would be written twice.
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

bool CAgentApp::Daemonize(int& status)
{
    m_pidFile.Printf("/var/run/%s.pid", GetAppName());

    KzaCore::CPidFileClaim claim(m_pidFile);
    if (claim.IsTaken() || IsOwned(m_pidFile))
    {
        wxLogError("%.128s present, exiting", m_pidFile);
        claim.Release();
        exit(kExitPresent);
    }

    status = kFailed;
    if (!GoOnInChild())
    {
        wxLogSysError("Unable to fork");
        return false;
    }
    setsid();
    EnterWorkingDirectory(m_dom->GetWxString(KzaCore::DomKey::kPathWork));
    if (!GoOnInChild())
    {
        wxLogSysError("Unable to do 2nd fork");
        return false;
    }
    LeaveTerminal();
    KzaCore::WritePidFile(m_pidFile);
    return true;
}
