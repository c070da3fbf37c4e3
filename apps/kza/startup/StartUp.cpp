// SPDX-License-Identifier: Apache-2.0
//
// Step: start-up initialisation, on the main thread, before any other exists.
//
// The framework calls OnInit(), whose base parses the command line and calls
// the other two. The result decides whether the process goes on to OnRun().

#include "AgentApp.h"
#include "Version.h"
#include "startup/CommandLine.h"
#include "startup/Configuration.h"
#include "startup/DumpFile.h"
#include "startup/Executable.h"
#include "startup/HeldRecords.h"
#include "startup/Options.h"
#include "startup/UnusedWords.h"
#include "startup/VendorDirectory.h"

#include "kza_core/CrashHandler.h"
#include "kza_core/Dom.h"
#include "kza_core/SqliteDatabase.h"

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <optional>
#include <string>
#include <utility>

namespace DomKey = KzaCore::DomKey;

namespace
{

void WriteInstallationKeys(const wxFileName& executable, KzaCore::CDom& dom)
{
    wxFileName libraries = executable;
    libraries.AppendDir("lib");

    dom.SetWx(DomKey::kPathBin, executable.GetPath());
    dom.SetWx(DomKey::kPathLib, libraries.GetPath());
    dom.SetWx(DomKey::kPathVendor, VendorDirectory(executable));
    dom.Set(DomKey::kVersion, Version::kText);
}

void ArmCrashHandler(const wxString& application, const KzaCore::CDom& dom)
{
    bool full = false;
    dom.Get(DomKey::kFullDump, full);
    KzaCore::InitCrashHandler(DumpFile(application, dom), application, full);
}

} // namespace

bool CAgentApp::OnInit()
{
    // The framework makes its default target with the first record of the main
    // thread; a record of another thread before that would be dropped.
    wxLog::GetActiveTarget();

    WriteInstallationKeys(ExecutableFrom(argv[0]), *m_dom);
    SetVendorName(wxGetTranslation("Orvalis"));
    if (!wxAppConsole::OnInit())
        return false;
    ArmCrashHandler(GetAppName(), *m_dom);
    if (m_isDefaultApp)
        wxLogVerbose("KZA %s starting.", Version::kText);
    return true;
}

void CAgentApp::OnInitCmdLine(wxCmdLineParser& parser)
{
    wxAppConsole::OnInitCmdLine(parser);
    DeclareOptions(parser);
}

bool CAgentApp::OnCmdLineParsed(wxCmdLineParser& parser)
{
    const wxFileName executable = ExecutableFrom(argv[0]);
    const CCommandLine line(parser, *m_dom);
    std::optional<CHeldRecords> held(std::in_place);

    line.ApplyName(executable, *this);
    m_isDefaultApp = GetAppName() == kDefaultName;
    m_background = line.ApplyBackground();
    m_installPlugins = line.InstallPlugins();
    m_extDir = line.ExtensionDirectory();
    m_zipPath = line.ApplyLuaPaths();
    line.ApplyWorkingDirectory(executable);
    line.ApplyTrace();
    const std::string variable = line.ApplyDomainVariable();
    m_unitTestScript = line.ApplyUnitTest();

    const SConfigurationFiles files = {
        m_dom->GetWxString(DomKey::kPathIni),
        m_dom->GetWxString(DomKey::kPathIniGlobal)};
    OpenConfiguration(GetAppName(), GetVendorName(), files);
    ApplySettings(files, variable, *m_dom);
    held.reset();
    ApplyConfiguration(GetAppName(), m_isDefaultApp, *m_dom);
    KzaCore::CSqliteDatabase::InitializeSQLite(*m_dom);

    WarnOfUnusedWords(parser, argv.GetArguments());
    return wxAppConsole::OnCmdLineParsed(parser);
}
