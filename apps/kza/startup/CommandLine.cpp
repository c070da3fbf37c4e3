// SPDX-License-Identifier: Apache-2.0
//
// Step: the command line and the configuration file, into the domain.
//
// The framework's start-up declares the options, parses and calls
// OnCmdLineParsed(), whose steps keep their order: a later one may overwrite
// what an earlier one wrote, and --domain_var stands between them. None of
// them stops the start.

#include "AgentApp.h"
#include "StandardError.h"
#include "startup/PluginPaths.h"

#include "kza_core/Dom.h"
#include "kza_core/SecureFile.h"
#include "kza_core/SqliteDatabase.h"

#include <wx/cmdline.h>
#include <wx/config.h>
#include <wx/fileconf.h>
#include <wx/filename.h>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr char kDefaultName[] = "kz_agent";
constexpr int kNormalize =
    wxPATH_NORM_DOTS | wxPATH_NORM_TILDE | wxPATH_NORM_ABSOLUTE;

constexpr char kDefaultTrace[] = "Appl,Cmd,Srvc,kza.Heartbeat,"
                                 "kza.ListenThread,kza.PluginUtils";

// The order is that of the usage text.
const wxCmdLineEntryDesc kOptions[] = {
    {wxCMD_LINE_OPTION, "a", "appname",
     "the name of this application (default is based on the name of the "
     "executable file).",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "b", "background",
     "run as a Windows service or Unix daemon process.", wxCMD_LINE_VAL_NONE,
     0},
    {wxCMD_LINE_OPTION, "c", "lua_cpath",
     "add the supplied value at the front of the search path for Lua C "
     "libraries.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "d", "domain_var",
     "sets domain variable; name=value format.", wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "e", "extdir",
     "extension folder. All *.kze files from this folder are added to the Lua "
     "search path.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "i", "install_plugins",
     "install all *.kzp files found in the same folder as the executable.",
     wxCMD_LINE_VAL_NONE, 0},
    {wxCMD_LINE_OPTION, "l", "lua_path",
     "add the supplied value at the front of the search path for Lua "
     "libraries.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "p", "plugins",
     "comma delimited list of plugins to enable.", wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "t", "trace",
     "enable tracing for the specified set of module names, separated by "
     "commas.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "w", "workdir",
     "working directory where this instance's data files are stored.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "u", "unittest",
     "runs the Lua script (possibly wildcarded) under LuaUnit.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "U", "test", "", wxCMD_LINE_VAL_NONE, 0},
    {wxCMD_LINE_OPTION, "z", "zippath",
     "list of ZIP archives of Lua code (possibly wildcarded), separated by "
     "semi-colons.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_PARAM, nullptr, nullptr, "-- script-param [script-param ...]",
     wxCMD_LINE_VAL_STRING,
     wxCMD_LINE_PARAM_OPTIONAL | wxCMD_LINE_PARAM_MULTIPLE},
    wxCMD_LINE_DESC_END};

wxFileName Executable(const wxAppConsole& app)
{
    wxFileName file(app.argv[0]);
    file.Normalize(kNormalize);
    return file;
}

// The option's value when it was given.
bool Given(const wxCmdLineParser& parser, const wxString& name, wxString& value)
{
    return parser.Found(name, &value);
}

} // namespace

void CAgentApp::OnInitCmdLine(wxCmdLineParser& parser)
{
    wxAppConsole::OnInitCmdLine(parser);
    parser.SetDesc(kOptions);
}

bool CAgentApp::OnCmdLineParsed(wxCmdLineParser& parser)
{
    ApplyName(parser);
    ApplySwitches(parser);
    ApplyLuaPaths(parser);
    ApplyWorkingDirectory(parser);
    ApplyTrace(parser);
    ApplyDomainVariable(parser);
    ApplyUnitTest(parser);
    OpenConfiguration();
    ApplyConfiguration();
    ApplySqliteConfiguration();
    KzaCore::CSqliteDatabase::InitializeSQLite(*m_dom);
    return wxAppConsole::OnCmdLineParsed(parser);
}

void CAgentApp::ApplyName(wxCmdLineParser& parser)
{
    m_dom->SetWx(DomKey::kPathExe, Executable(*this).GetFullPath());
    wxString name;
    if (Given(parser, "appname", name))
        SetAppName(name);
    m_dom->SetWx(DomKey::kName, GetAppName());
    m_isDefaultApp = GetAppName() == kDefaultName;
}

void CAgentApp::ApplySwitches(wxCmdLineParser& parser)
{
    if (parser.Found("background"))
    {
        m_dom->Set(DomKey::kBackground, true);
        m_background = true;
    }
    m_installPlugins = parser.Found("install_plugins");
    Given(parser, "extdir", m_extDir);
}

void CAgentApp::ApplyLuaPaths(wxCmdLineParser& parser)
{
    wxString plugins;
    if (Given(parser, "plugins", plugins))
        m_dom->SetWx(DomKey::kPlugins, plugins);
    wxString paths;
    if (Given(parser, "lua_cpath", paths))
        m_dom->SetWx(DomKey::kLuaCPath, ExpandPathPlugins(paths, plugins));
    if (Given(parser, "lua_path", paths))
        m_dom->SetWx(DomKey::kLuaPath, ExpandPathPlugins(paths, plugins));
    Given(parser, "zippath", m_zipPath);
    m_zipPath = ExpandPathPlugins(m_zipPath, plugins);
}

void CAgentApp::ApplyWorkingDirectory(wxCmdLineParser& parser)
{
    wxFileName dir;
    wxString given;
    if (Given(parser, "workdir", given))
        dir = wxFileName::DirName(wxExpandEnvVars(given));
    else
    {
        dir = wxFileName::DirName(Executable(*this).GetPath());
        dir.AppendDir("work");
    }
    dir.Normalize(kNormalize);
    const wxString path = dir.GetPath();

    // The missing parents keep these rights too; the last level gets what a
    // directory needs, also when another process made it just now. Whether it
    // is there shows when files are written.
    if (!wxFileName::DirExists(path))
    {
        wxFileName::Mkdir(path, 0600, wxPATH_MKDIR_FULL);
        KzaCore::SecureFileOrDirectory(path, false);
    }
    m_dom->SetWx(DomKey::kPathWork, path);

    // One configuration file for every name under which this runs.
    m_dom->SetWx(DomKey::kPathIni,
                 wxFileName(path, kDefaultName, "ini").GetFullPath());
    m_dom->SetWx(DomKey::kPathIniGlobal,
                 wxFileConfig::GetGlobalFile(kDefaultName).GetFullPath());
}

void CAgentApp::ApplyTrace(wxCmdLineParser& parser)
{
    wxString components;
    if (!Given(parser, "trace", components))
        return;
    components.Replace("'", "");
    components.Replace("\"", "");
    m_dom->SetWx(DomKey::kTrace, components);
}

void CAgentApp::ApplyDomainVariable(wxCmdLineParser& parser)
{
    wxString given;
    if (!Given(parser, "domain_var", given))
        return;
    const std::size_t equals = given.find('=');
    if (equals == wxString::npos || equals == 0)
    {
        WriteToStandardError(wxString::Format(
            "Ignoring invalid domain variable specification '%s': expected "
            "name=value format\n",
            given));
        return;
    }
    m_dom->Set(given.substr(0, equals).ToStdString(),
               given.substr(equals + 1).ToStdString());
}

void CAgentApp::ApplyUnitTest(wxCmdLineParser& parser)
{
    wxString script;
    if (Given(parser, "unittest", script))
    {
        const bool isPattern = script.find_first_of("*?") != wxString::npos;
        if (isPattern || (wxFileName::FileExists(script) &&
                          wxFileName::IsFileReadable(script)))
        {
            m_unitTestScript = script;
            m_dom->Set(DomKey::kUnitTestMode, true);
        }
        else
            WriteToStandardError(script + ": not found");
    }
    if (parser.Found("test"))
        m_dom->Set(DomKey::kUnitTestMode, true);
}

void CAgentApp::OpenConfiguration()
{
    // The framework keeps the new one.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    delete wxConfigBase::Set(new wxFileConfig(
        GetAppName(), GetVendorName(), m_dom->GetWxString(DomKey::kPathIni),
        m_dom->GetWxString(DomKey::kPathIniGlobal),
        wxCONFIG_USE_LOCAL_FILE | wxCONFIG_USE_GLOBAL_FILE, wxConvAuto()));
}

void CAgentApp::ApplyConfiguration()
{
    const wxConfigBase& config = *wxConfigBase::Get();
    const wxString components = m_isDefaultApp
                                    ? config.Read("Trace", kDefaultTrace)
                                    : config.Read(GetAppName() + ".Trace", "");
    wxString fipsMode;
    if (config.Read("FIPSMode", &fipsMode))
        m_dom->SetWx(DomKey::kFipsMode, fipsMode);
    m_dom->SetWx(DomKey::kTraceMore, components);

    // A failed read still touches the variable: the result decides.
    long level = 0;
    const bool hasLevel = config.Read("DumpLevel", &level);
    m_dom->Set(DomKey::kFullDump, hasLevel && level != 0);
}

void CAgentApp::ApplySqliteConfiguration()
{
    const wxConfigBase& config = *wxConfigBase::Get();
    wxString name;
    long index = 0;
    for (bool more = config.GetFirstEntry(name, index); more;
         more = config.GetNextEntry(name, index))
    {
        long value = 0;
        if (name.StartsWith(DomKey::kSqlitePrefix) && config.Read(name, &value))
            m_dom->SetWx(name, static_cast<long long>(value));
    }
}
