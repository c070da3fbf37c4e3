// SPDX-License-Identifier: Apache-2.0
//
// The application object: how it comes, and how it goes.
//
// Construction runs on the main thread before any other thread exists, while
// the framework's own target still takes the log.

#include "AgentApp.h"

#include "ApplTrace.h"
#include "packages/Packages.h"
#include "service/Signals.h"
#include "startup/StandardDescriptors.h"

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/LuaInterpreter.h"
#include "kza_core/OpenSSLCompat.h"
#include "kza_core/OpenSSLThreads.h"
#include "kza_core/SqliteDatabase.h"

#include <wx/log.h>

#include <ctime>
#include <openssl/rand.h>

wxIMPLEMENT_APP_NO_MAIN(CAgentApp);

const wxString CAgentApp::s_Trace = kApplTrace;

namespace
{

// Running out of attempts is silent: a host short of entropy still gets its
// agent.
void SeedRandomGenerator()
{
    constexpr int kMaxPolls = 100;
    for (int polls = 0; polls < kMaxPolls; ++polls)
    {
        RAND_poll();
        if (RAND_status() == 1)
            return;
    }
}

} // namespace

CAgentAppTraits::~CAgentAppTraits() = default;

wxLog* CAgentAppTraits::CreateLogTarget()
{
    return new KzaCore::CLog2Disk;
}

CAgentApp::CAgentApp()
{
    OpenStandardDescriptors();
    IgnoreFileSizeSignal();

    tzset();
    m_startTime = wxDateTime::UNow();

    wxLog::SetVerbose(true);
    wxLog::SetLogLevel(wxLOG_Info);
    wxLog::SetTimestamp("%Y-%m-%d %H:%M:%S");

    m_locale.Adopt();

    StartupInit();
    m_dom = KzaCore::CDom::New(nullptr, nullptr, nullptr, false);
}

CAgentApp::~CAgentApp()
{
    delete m_lua;
    m_lua = nullptr;
    if (m_dom != nullptr)
        m_dom->Release();
    m_dom = nullptr;
    TerminationCleanup();
}

void CAgentApp::StartupInit()
{
    static bool b_InitDone = false;
    if (b_InitDone)
        return;
    b_InitDone = true;

    KzaCore::OpenSSLCompat::Initialize();
    KzaCore::OpenSSLThreadSetup();
    SeedRandomGenerator();
}

void CAgentApp::TerminationCleanup()
{
    static bool b_TermDone = false;
    if (b_TermDone)
        return;
    b_TermDone = true;

    KzaCore::OpenSSLThreadShutdown();
    KzaCore::OpenSSLCompat::CleanUp();
    KzaCore::CSqliteDatabase::ShutdownSQLite();
}

wxAppTraits* CAgentApp::CreateTraits()
{
    return new CAgentAppTraits;
}
