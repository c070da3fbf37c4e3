// SPDX-License-Identifier: Apache-2.0
//
// Step: the run driver, on the main thread.
//
// In the foreground this process runs the application. In the background it
// becomes the watchdog, and every worker that it forks runs the application.
// A process that runs the application calls exit(); OnRun() does not return in
// it.

#include "AgentApp.h"
#include "Version.h"
#include "service/Daemon.h"
#include "service/Watchdog.h"
#include "startup/DumpFile.h"
#include "startup/Fips.h"

#include "base/SignalSet.h"

#include "kza_core/Dom.h"

#include <wx/log.h>

#include <cstdlib>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr int kFailed = -1;

} // namespace

int CAgentApp::OnRun()
{
    if (!EnterFipsMode(*m_dom, m_untrustedDir))
        return 0;
    if (m_background)
    {
        m_pidFile.Printf("/var/run/%s.pid", GetAppName());
        if (!Daemonize(m_pidFile, m_dom->GetWxString(DomKey::kPathWork),
                       m_dom->OwnerRule()))
            return kFailed;
        CWatchdog watchdog(m_pidFile, DumpFile(GetAppName(), *m_dom),
                           [this]() -> int { RunScriptApp(); });
        return watchdog.Run();
    }
    wxLog::SetLogLevel(wxLOG_Max);
    RunScriptApp();
}

void CAgentApp::RunScriptApp()
{
    // Blocked before any other thread exists, so that all of them inherit the
    // mask: SIGTERM stays pending until the script thread takes it with
    // sigwait().
    const sigset_t term = KzaCore::SignalSet({SIGTERM});
    sigprocmask(SIG_BLOCK, &term, nullptr);

    CScriptThread thread;
    thread.SetDom(m_dom);
    if (m_background)
        m_stopWatch = std::make_unique<CStopWatch>(thread);
    if (!thread.start(50, true, 0))
    {
        TerminationCleanup();
        exit(255);
    }
    const int status = wxAppConsole::OnRun();
    thread.requestExit();
    thread.join();
    m_control.reset();
    TerminationCleanup();
    exit(status);
}

int CAgentApp::MainLoop()
{
    m_loop = std::make_unique<CMainLoop>(m_loopProgress);
    if (m_stopWatch)
        m_stopWatch->Start(*m_loop);
    OpenControlSocket();
    OnLaunched();
    return m_loop->Run();
}

void CAgentApp::OpenControlSocket()
{
    if (!KzaCore::IsSwitchedOn(m_dom->Value(DomKey::kControlSocket)))
        return;
    const wxString directory = m_dom->GetPluginWorkdirWx("run");
    if (directory.empty())
        return; // the reason was logged
    m_control = std::make_unique<CControlSocket>(
        *m_dom, CControlIdentity{m_dom->Get(DomKey::kName), Version::kText});
    m_control->Open(directory, *m_loop);
}

wxString CAgentApp::RunTimeText(const wxTimeSpan& runTime)
{
    return runTime.Format("%Dd %H:%M:%S.%l");
}

int CAgentApp::OnExit()
{
    if (m_isDefaultApp)
        wxLogVerbose("KZA %s exiting. Run time was %s",
                     wxString(Version::kText),
                     RunTimeText(wxDateTime::UNow() - m_startTime));
    return wxAppConsole::OnExit();
}
