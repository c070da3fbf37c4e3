// SPDX-License-Identifier: Apache-2.0
//
// Construction and destruction of the application object.
//
// The constructor runs on the main thread before any other thread exists, while
// log records still go to the framework's own target.

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

// Gives up without a message after some attempts: the agent must start also on
// a host that is short of entropy.
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
