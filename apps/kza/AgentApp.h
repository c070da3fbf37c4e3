// SPDX-License-Identifier: Apache-2.0
//
// The application object: the whole life of the process, in the order in which
// the framework drives it. Start reading here; each step has a file of its own.
//
// Threads: the main thread, but for the steps under "script thread". The
// script thread starts after start-up, and the main thread joins it when the
// event loop has returned. In between, both threads use only two members, the
// stop watch and the loop's progress; each of these has a lock of its own.

#pragma once

#include "control/ControlSocket.h"
#include "script/MainLoop.h"
#include "service/StopWatch.h"
#include "startup/ProcessLocale.h"

#include "kza_core/Runnable.h"

#include <wx/app.h>
#include <wx/apptrait.h>
#include <wx/datetime.h>

#include <memory>
#include <string>

class wxFileName;
class wxInputStream;
class wxOutputStream;
class wxZipEntry;
class CPackages;
struct lua_State;

namespace KzaCore
{
class CDom;
class CLuaInterpreter;
} // namespace KzaCore

/// Chooses the disk log as the framework's default log target.
class CAgentAppTraits : public wxConsoleAppTraits
{
public:
    ~CAgentAppTraits() override;
    wxLog* CreateLogTarget() override;
};

class CAgentApp : public wxAppConsole
{
public:
    /// The application's trace component.
    static const wxString s_Trace;

    // --- Life of the process (AgentApp.cpp) --------------------------------

    CAgentApp();
    ~CAgentApp() override;

    CAgentApp(const CAgentApp&) = delete;
    CAgentApp& operator=(const CAgentApp&) = delete;

    /// Initialises OpenSSL, once per process.
    static void StartupInit();

    /// Shuts OpenSSL and SQLite down, once per process; a later call does
    /// nothing. Callers must not race.
    static void TerminationCleanup();

    wxAppTraits* CreateTraits() override;

    // --- Start-up (startup/StartUp.cpp) ------------------------------------

    bool OnInit() override;
    void OnInitCmdLine(wxCmdLineParser& parser) override;
    bool OnCmdLineParsed(wxCmdLineParser& parser) override;

    // --- The run and its end (service/Run.cpp) -----------------------------

    int OnRun() override;
    int MainLoop() override;
    int OnExit() override;

    /// The run time in the form of the exit report: `1d 02:03:04.005`.
    static wxString RunTimeText(const wxTimeSpan& runTime);

    // On the thread that threw the exception (script/UnhandledException.cpp).
    void OnUnhandledException() override;

    // --- Script thread: the application script (script/ScriptThread.cpp) ---

    /// Runs the whole script. Its status becomes the process's exit status.
    int OnRunScript();

    /// Gives the main thread some time to enter its loop.
    void AwaitMainLoop();

    /// Tells the main loop to end with the status; from the script thread.
    void EndRun(int status);

    int RunAppInteractively();
    int RunAppInit();
    int RunAppMain();
    int RunAppShutdown();
    int RunAppMethod(const wchar_t* method);

    // Steps of the script thread, each in a file of its own.

    void UninstallOldPlugins(); // packages/AppSteps.cpp
    void InstallNewPlugins();   // packages/AppSteps.cpp
    void ExpandZippath();       // packages/AppSteps.cpp
    int SetupLua();             // script/LuaSetup.cpp
    int RunUnitTests();         // script/TestMode.cpp

    /// Runs one chunk and returns its result as a status (script/Chunks.cpp).
    int RunChunk(wxInputStream& in, wxOutputStream& out, const wxString& name);
    int RunCodeSnippet(const wxString& code);

    // --- Packages (packages/AppSteps.cpp) ----------------------------------

    /// True when a package's name allows its installation.
    bool CheckKZPVersion(const wxFileName& package);

    /// True when an extension archive was made for this agent's version.
    bool ExtensionVersionIsOK(const wxString& extensionPath);

    static bool InstallPluginZipCB(void* context,
                                   const wxZipEntry* entry,
                                   const wxString* destPath);
    static bool UninstallPluginZipCB(void* context,
                                     const wxZipEntry* entry,
                                     const wxString* destPath);

    // --- Queries (startup/StartUp.cpp, script/LuaSetup.cpp) ----------------

    /// True for the agent itself, false for a tool under another name.
    [[nodiscard]] bool IsDefaultApp() const { return m_isDefaultApp; }
    [[nodiscard]] bool IsBackground() const { return m_background; }

    /// The executable's directory, from which code, archives and packages are
    /// taken. Empty when that directory is not trusted.
    [[nodiscard]] wxString InstallationDirectory() const;

    /// The state of the application's interpreter, which must exist.
    [[nodiscard]] lua_State* L() const;

private:
    // Steps of OnCmdLineParsed.
    void ReadSettings(const wxString& localFile, const std::string& stronger);
    void EndUnlessOwnersAreRight() const;

    CPackages& Packages();
    bool InstallPluginZipCB(const wxZipEntry* entry);
    bool UninstallPluginZipCB(const wxZipEntry* entry,
                              const wxString* destPath);

    void SetArguments();        // script/LuaSetup.cpp
    void ReportFailure() const; // script/Chunks.cpp
    void WarnOfOddModule();     // script/ScriptThread.cpp

    // Steps of OnRun and MainLoop.
    [[noreturn]] void RunScriptApp(); // service/Run.cpp
    void OpenControlSocket();         // service/Run.cpp

    bool m_reserved = false;
    bool m_installPlugins = false;
    bool m_isDefaultApp = false;
    bool m_background = false;
    wxString m_extDir;
    CProcessLocale m_locale;
    KzaCore::CDom* m_dom = nullptr;            // owned, given back by Release()
    KzaCore::CLuaInterpreter* m_lua = nullptr; // owned
    wxDateTime m_startTime;
    wxString m_unitTestScript;
    wxString m_zipPath;
    wxString m_pidFile;

    // The executable's directory when it is not trusted, because it is only the
    // current directory (Executable.h); else empty.
    wxString m_untrustedDir;

    std::unique_ptr<CPackages> m_packages; // while packages are applied

    // In background mode, while the application runs.
    std::unique_ptr<CStopWatch> m_stopWatch;

    // Freed with this object, after the script thread was joined, because that
    // thread uses both members.
    CMainLoopProgress m_loopProgress;
    std::unique_ptr<CMainLoop> m_loop;

    // The description of the last chunk's result when it is no status; see
    // DescribeOddResult().
    wxString m_oddResult;

    // Exists with the setting control.socket; served by the loop.
    std::unique_ptr<CControlSocket> m_control;
};

/// The thread that runs the application script.
class CScriptThread : public KzaCore::CRunnable
{
public:
    CScriptThread();
    ~CScriptThread() override;

    [[nodiscard]] const wchar_t* GetThreadName() const override;
    void OnRun() override;
};

wxDECLARE_APP(CAgentApp);

// --- Lua entry points ------------------------------------------------------

/// Runs CAgentApp::SetupLua() for the application in upvalue 1.
int SetupLua(lua_State* L);
