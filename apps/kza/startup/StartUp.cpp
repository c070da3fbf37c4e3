// SPDX-License-Identifier: Apache-2.0
//
// Step: start-up initialisation, on the main thread, before any other exists.
//
// The framework calls OnInit(). The base class's OnInit() parses the command
// line and calls OnInitCmdLine() and OnCmdLineParsed(). The result decides
// whether the process goes on to OnRun().

#include "AgentApp.h"
#include "StandardError.h"
#include "Version.h"
#include "startup/CommandLine.h"
#include "startup/Configuration.h"
#include "startup/DumpFile.h"
#include "startup/Executable.h"
#include "startup/HeldRecords.h"
#include "startup/Options.h"
#include "startup/StartPlaces.h"
#include "startup/UnusedWords.h"
#include "startup/VendorDirectory.h"

#include "base/Bytes.h"
#include "kza_core/CrashHandler.h"
#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Owner.h"
#include "kza_core/SqliteDatabase.h"

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr int kExitRefused = 1;

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

// The configuration file whose entries win over the host's; empty when it would
// be in a working directory under an untrusted directory.
wxString LocalConfiguration(const KzaCore::CDom& dom,
                            const wxCmdLineParser& parser,
                            const wxString& untrustedDir)
{
    const wxString file = dom.GetWxString(DomKey::kPathIni);
    if (untrustedDir.empty() || parser.Found("workdir"))
        return file;
    wxFileName work = wxFileName::DirName(untrustedDir);
    work.AppendDir("work");
    return wxFileName(file).GetPath() == work.GetPath() ? wxString() : file;
}

void ReportUntrusted(const wxString& executable, const wxString& directory)
{
    const wxString text = wxString::Format(
        "'%s' is not the program that runs, which was found through PATH: no "
        "code, archive, package or configuration is taken from '%s'. Start the "
        "program by its path",
        executable, directory);
    WriteToStandardError(text + "\n");
    KzaCore::LogToDisk(KzaCore::ELogLevel::Error, wxString(), text,
                       KzaCore::EConsole::Leave);
}

[[noreturn]] void EndRefused(const KzaCore::TChangeable& changeable)
{
    for (const std::string& text : changeable)
        WriteToStandardError(wxTheApp->GetAppName() + ": " +
                             KzaCore::TextOfBytes(text) + "\n");
    exit(kExitRefused);
}

} // namespace

wxString CAgentApp::InstallationDirectory() const
{
    const wxString bin = m_dom->GetWxString(DomKey::kPathBin);
    return bin == m_untrustedDir ? wxString() : bin;
}

bool CAgentApp::OnInit()
{
    // The framework makes its default target at the first record of the main
    // thread, and would drop a record of another thread before. This call makes
    // the target now.
    wxLog::GetActiveTarget();

    m_untrustedDir = UntrustedDirectory(argv[0]);
    WriteInstallationKeys(ExecutableFrom(argv[0]), *m_dom);
    SetVendorName(wxGetTranslation("Orvalis"));
    if (!wxAppConsole::OnInit())
        return false;
    if (!m_untrustedDir.empty())
        ReportUntrusted(m_dom->GetWxString(DomKey::kPathExe), m_untrustedDir);
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

void CAgentApp::ReadSettings(const wxString& localFile,
                             const std::string& stronger)
{
    const CJudgedConfiguration judged = JudgeConfiguration(
        {localFile, m_dom->GetWxString(DomKey::kPathIniGlobal)}, *m_dom);
    OpenConfiguration(GetAppName(), GetVendorName(), judged.files);
    ApplySettings(judged.files, stronger, *m_dom);
    if (judged.isStrict)
        m_dom->Set(DomKey::kStrictOwner, true);
}

// Before the first record: the log may be in a place of another user's.
void CAgentApp::EndUnlessOwnersAreRight() const
{
    const wxString bin = InstallationDirectory();
    const KzaCore::TChangeable changeable = JudgeStartPlaces(
        {bin.empty() ? wxString() : m_dom->GetWxString(DomKey::kPathExe), bin,
         m_dom->GetWxString(DomKey::kPathWork), GetAppName()});
    const KzaCore::EOwnerRule rule = m_dom->OwnerRule();
    if (rule == KzaCore::EOwnerRule::Refuse && !changeable.empty())
        EndRefused(changeable);
    KzaCore::Tolerate(changeable, rule);
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

    ReadSettings(LocalConfiguration(*m_dom, parser, m_untrustedDir), variable);
    EndUnlessOwnersAreRight();
    held.reset();
    ApplyConfiguration(GetAppName(), m_isDefaultApp, *m_dom);
    KzaCore::CSqliteDatabase::InitializeSQLite(*m_dom);

    WarnOfUnusedWords(parser, argv.GetArguments());
    return wxAppConsole::OnCmdLineParsed(parser);
}
