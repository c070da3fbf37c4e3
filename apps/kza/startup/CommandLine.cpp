// SPDX-License-Identifier: Apache-2.0

#include "startup/CommandLine.h"

#include "StandardError.h"
#include "startup/Executable.h"
#include "startup/PluginPaths.h"

#include "kza_core/Dom.h"
#include "kza_core/SecureFile.h"

#include <wx/app.h>
#include <wx/cmdline.h>
#include <wx/fileconf.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <clocale>

namespace DomKey = KzaCore::DomKey;

namespace
{

wxString DefaultWorkingDirectory(const wxFileName& executable)
{
    wxFileName dir = wxFileName::DirName(executable.GetPath());
    dir.AppendDir("work");
    return NormalizedDirectory(dir);
}

bool IsUsableTestScript(const wxString& script)
{
    const bool isPattern = script.find_first_of("*?") != wxString::npos;
    return isPattern || (wxFileName::FileExists(script) &&
                         wxFileName::IsFileReadable(script));
}

// A part of a domain variable as bytes; empty when the locale's encoding cannot
// express all of it, so that no altered text is stored.
std::string InLocalesEncoding(const wxString& text,
                              const wxString& variable,
                              const wxString& part)
{
    std::string bytes = text.ToStdString();
    if (bytes.empty() && !text.empty())
        wxLogWarning("--domain_var '%s': the locale '%s' cannot express the "
                     "%s, an empty text is stored in its place",
                     variable, wxString(setlocale(LC_CTYPE, nullptr)), part);
    return bytes;
}

// Missing parents keep the mode 0600, too. The last level gets the mode 0700,
// also when another process has made it meanwhile. A failure shows when files
// are written.
void MakeWorkingDirectory(const wxString& path)
{
    if (wxFileName::DirExists(path))
        return;
    wxFileName::Mkdir(path, 0600, wxPATH_MKDIR_FULL);
    KzaCore::SecureFileOrDirectory(path, false);
}

} // namespace

CCommandLine::CCommandLine(const wxCmdLineParser& parser, KzaCore::CDom& dom)
    : m_parser(parser), m_dom(dom)
{
}

wxString CCommandLine::Value(const wxString& option) const
{
    wxString value;
    m_parser.Found(option, &value);
    return value;
}

void CCommandLine::ApplyName(const wxFileName& executable,
                             wxAppConsole& app) const
{
    m_dom.SetWx(DomKey::kPathExe, executable.GetFullPath());
    wxString name;
    if (m_parser.Found("appname", &name))
        app.SetAppName(name);
    m_dom.SetWx(DomKey::kName, app.GetAppName());
}

bool CCommandLine::ApplyBackground() const
{
    const bool isAsked = m_parser.Found("background");
    if (isAsked)
        m_dom.Set(DomKey::kBackground, true);
    return isAsked;
}

bool CCommandLine::InstallPlugins() const
{
    return m_parser.Found("install_plugins");
}

wxString CCommandLine::ExtensionDirectory() const
{
    return Value("extdir");
}

wxString CCommandLine::ApplyLuaPaths() const
{
    wxString plugins;
    if (m_parser.Found("plugins", &plugins))
        m_dom.SetWx(DomKey::kPlugins, plugins);
    wxString paths;
    if (m_parser.Found("lua_cpath", &paths))
        m_dom.SetWx(DomKey::kLuaCPath, ExpandPathPlugins(paths, plugins));
    if (m_parser.Found("lua_path", &paths))
        m_dom.SetWx(DomKey::kLuaPath, ExpandPathPlugins(paths, plugins));
    return ExpandPathPlugins(Value("zippath"), plugins);
}

void CCommandLine::ApplyWorkingDirectory(const wxFileName& executable) const
{
    wxString given;
    const wxString path =
        m_parser.Found("workdir", &given)
            ? NormalizedDirectory(wxFileName::DirName(wxExpandEnvVars(given)))
            : DefaultWorkingDirectory(executable);
    MakeWorkingDirectory(path);
    m_dom.SetWx(DomKey::kPathWork, path);

    // Applications of all names use the same configuration file.
    m_dom.SetWx(DomKey::kPathIni,
                wxFileName(path, kDefaultName, "ini").GetFullPath());
    m_dom.SetWx(DomKey::kPathIniGlobal,
                wxFileConfig::GetGlobalFile(kDefaultName).GetFullPath());
}

void CCommandLine::ApplyTrace() const
{
    wxString components;
    if (!m_parser.Found("trace", &components))
        return;
    components.Replace("'", "");
    components.Replace("\"", "");
    m_dom.SetWx(DomKey::kTrace, components);
}

std::string CCommandLine::ApplyDomainVariable() const
{
    wxString given;
    if (!m_parser.Found("domain_var", &given))
        return {};
    const std::size_t equals = given.find('=');
    if (equals == wxString::npos || equals == 0)
    {
        WriteToStandardError(wxString::Format(
            "Ignoring invalid domain variable specification '%s': expected "
            "name=value format\n",
            given));
        return {};
    }
    const wxString name = given.substr(0, equals);
    std::string key = InLocalesEncoding(name, name, "name");
    m_dom.Set(key, InLocalesEncoding(given.substr(equals + 1), name, "value"));
    return key;
}

wxString CCommandLine::ApplyUnitTest() const
{
    wxString script;
    if (m_parser.Found("unittest", &script))
    {
        if (IsUsableTestScript(script))
            m_dom.Set(DomKey::kUnitTestMode, true);
        else
        {
            WriteToStandardError(script + ": not found");
            script.clear();
        }
    }
    if (m_parser.Found("test"))
        m_dom.Set(DomKey::kUnitTestMode, true);
    return script;
}
