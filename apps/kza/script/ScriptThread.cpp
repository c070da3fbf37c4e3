// SPDX-License-Identifier: Apache-2.0
//
// Step: the application script's life, on the script thread.
//
// The application is one Lua module named after it. Its functions init, main
// and shutdown run in this order; a status other than 0 stops the sequence and
// becomes the process's exit status.

#include "AgentApp.h"
#include "ApplTrace.h"
#include "script/LuaReport.h"
#include "service/Signals.h"

#include "base/Bytes.h"
#include "base/SignalSet.h"
#include "kza_core/Dom.h"
#include "kza_core/LuaInterpreter.h"
#include "kza_core/Profiler.h"

#include <lua.hpp>
#include <wx/log.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace
{

void AwaitTermSignal()
{
    const sigset_t term = KzaCore::SignalSet({SIGTERM});
    int signal = 0;
    profiler_idle();
    const int error = sigwait(&term, &signal);
    profiler_running();
    if (error == 0)
    {
        wxLogWarning("sigwait(): caught signal %d", signal);
        return;
    }
    errno = error; // sigwait() returns it; the log reads it here
    wxLogSysError("sigwait");
}

} // namespace

CScriptThread::CScriptThread() : CRunnable(false, -1, false)
{
}

CScriptThread::~CScriptThread() = default;

const wchar_t* CScriptThread::GetThreadName() const
{
    return L"CScriptThread";
}

void CScriptThread::OnRun()
{
    CAgentApp& app = wxGetApp();
    app.AwaitMainLoop();
    app.EndRun(app.OnRunScript());
}

void CAgentApp::AwaitMainLoop()
{
    // An application that ends before the main thread has entered its loop
    // leaves the run going. On a busy machine the main thread may need a while
    // for its last steps to the loop; mostly it takes microseconds.
    constexpr std::chrono::milliseconds kLongest{200};
    m_loopProgress.AwaitEntered(kLongest);
}

void CAgentApp::EndRun(int status)
{
    if (!m_isDefaultApp && !m_background)
    {
        // exit() destroys the framework's static objects. The main thread must
        // not use them meanwhile; it does not while it sleeps in its loop.
        constexpr std::chrono::seconds kLongest{1};
        m_loopProgress.AwaitIdle(kLongest);
        if (m_control)
            m_control->RemoveFile();
        TerminationCleanup();
        exit(status);
    }
    // Read before the idle event wakes the main thread. When the main thread
    // has not entered its loop by now, the run goes on.
    CMainLoop* const loop = m_loopProgress.Entered();
    QueueEvent(new wxIdleEvent);
    if (loop != nullptr)
        loop->Exit(status);
}

int CAgentApp::OnRunScript()
{
    if (!m_background)
        return RunAppInteractively();

    int status = RunAppInit();
    if (status != 0)
        return status;
    wxLogMessage("%s is up", GetAppName());
    m_stopWatch->MainBegins();
    status = RunAppMain();
    m_stopWatch->MainEnds();
    if (status != 0)
        return status;
    AwaitTermSignal();
    status = RunAppShutdown();
    const sigset_t term = KzaCore::SignalSet({SIGTERM});
    pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
    return status;
}

int CAgentApp::RunAppInteractively()
{
    int status = RunAppInit();
    if (status == 0)
        status = m_unitTestScript.empty() ? RunAppMain() : RunUnitTests();
    if (status != 0)
        return status;
    return RunAppShutdown();
}

int CAgentApp::RunAppInit()
{
    if (m_installPlugins && !InstallationDirectory().empty())
    {
        UninstallOldPlugins();
        InstallNewPlugins();
    }
    ExpandZippath();
    InstallSignalDispositions();

    const wxString name = GetAppName() + L".lua";
    m_lua = new KzaCore::CLuaInterpreter(false, name.wc_str(), true);
    lua_State* const L = m_lua->L();
    lua_pushlightuserdata(L, this);
    lua_pushcclosure(L, ::SetupLua, 1);
    int status = lua_pcall(L, 0, 0, 0);
    if (status != LUA_OK)
    {
        const char* const reason = lua_tostring(L, -1);
        ReportLuaFailure("Error setting up Lua:\n" +
                         KzaCore::TextOfBytes(reason == nullptr ? "" : reason));
        return status;
    }
    status =
        RunCodeSnippet(L"kzaAppModule = require([[" + GetAppName() + L"]]);");
    if (status != 0)
        return status;
    WarnOfOddModule();
    return RunAppMethod(L"init");
}

void CAgentApp::WarnOfOddModule()
{
    const wxString problem = DescribeOddModule(L());
    if (!problem.empty())
        wxLogWarning("Module '%s' %s", GetAppName(), problem);
}

int CAgentApp::RunAppMain()
{
    return RunAppMethod(L"main");
}

int CAgentApp::RunAppShutdown()
{
    return RunAppMethod(L"shutdown");
}

int CAgentApp::RunAppMethod(const wchar_t* method)
{
    APPL_TRACE(L"Running app's Lua method '" + wxString(method) + L"'");
    const int status = RunCodeSnippet(
        wxString::Format("if type(kzaAppModule.%1$s) == 'function' then return "
                         "kzaAppModule.%1$s(); else return 0; end;",
                         method));
    if (!m_oddResult.empty())
        wxLogWarning("'%s' returned %s", method, m_oddResult);
    return status;
}
