// SPDX-License-Identifier: Apache-2.0
//
// Step: start-up initialisation, on the main thread, before any other exists.
//
// Its result decides whether the process goes on to OnRun().

#include "AgentApp.h"
#include "Version.h"
#include "startup/VendorDirectory.h"

#include "kza_core/CrashHandler.h"
#include "kza_core/Dom.h"

#include <wx/filename.h>
#include <wx/log.h>

namespace DomKey = KzaCore::DomKey;

bool CAgentApp::OnInit()
{
    // The framework makes its default target with the first record of the main
    // thread; a record of another thread before that would be dropped.
    wxLog::GetActiveTarget();

    WriteInstallationKeys();
    SetVendorName(wxGetTranslation("Orvalis"));
    if (!wxAppConsole::OnInit())
        return false;
    ArmCrashHandler();
    if (m_isDefaultApp)
        wxLogVerbose("KZA %s starting.", Version::kText);
    return true;
}

void CAgentApp::WriteInstallationKeys()
{
    wxFileName executable(argv[0]);
    executable.Normalize(wxPATH_NORM_DOTS | wxPATH_NORM_TILDE |
                         wxPATH_NORM_ABSOLUTE);
    wxFileName libraries = executable;
    libraries.AppendDir("lib");

    m_dom->SetWx(DomKey::kPathBin, executable.GetPath());
    m_dom->SetWx(DomKey::kPathLib, libraries.GetPath());
    m_dom->SetWx(DomKey::kPathVendor, VendorDirectory(executable));
    m_dom->Set(DomKey::kVersion, Version::kText);
}

void CAgentApp::ArmCrashHandler()
{
    const wxFileName dump(m_dom->GetPluginWorkdirWx("diag"), GetAppName(),
                          "mdmp");
    bool full = false;
    m_dom->Get(DomKey::kFullDump, full);
    KzaCore::InitCrashHandler(dump.GetFullPath(), GetAppName(), full);
}
