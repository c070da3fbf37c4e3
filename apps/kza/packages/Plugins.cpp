// SPDX-License-Identifier: Apache-2.0
//
// Step: remove and install packages, on the script thread before the archive
// search path is built and any Lua runs.
//
// Packages come from elsewhere. Whatever is wrong with one of them ends in its
// event and never stops the others or the start.

#include "AgentApp.h"
#include "ApplTrace.h"
#include "packages/PackageName.h"

#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"
#include "kza_core/SyncFileSystem.h"
#include "kza_core/Time.h"
#include "kza_core/Unzip.h"

#include <wx/arrstr.h>
#include <wx/dir.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr char kLeftovers[] = "Agent-Core*";
constexpr char kInstallPackages[] = "*.kzp";
constexpr char kRemovalPackages[] = "*.kzu";
constexpr char kDoneSuffix[] = ".done";

// Numbers of the agent events.
constexpr std::uint32_t kInstalled = 5101;
constexpr std::uint32_t kNotInstalled = 5102;
constexpr std::uint32_t kRemoved = 5105;
constexpr std::uint32_t kNotRemoved = 5106;

wxFileName BinDirectory(const KzaCore::CDom& dom)
{
    return {dom.GetWxString(DomKey::kPathBin), wxEmptyString};
}

// Full paths of the files in a directory whose names match, by character code.
wxArrayString FilesIn(const wxFileName& directory, const wxString& pattern)
{
    wxArrayString files;
    wxDir::GetAllFiles(directory.GetPath(wxPATH_GET_VOLUME), &files, pattern,
                       wxDIR_FILES);
    files.Sort();
    return files;
}

// Removes a file without a word of the framework's own; the system's error is
// left in errno.
bool RemoveFile(const wxString& path)
{
    const wxLogNull quiet;
    return wxRemoveFile(path);
}

bool MoveFile(const wxString& from, const wxString& to)
{
    const wxLogNull quiet;
    return wxRenameFile(from, to, true);
}

bool IsReadable(const wxString& package)
{
    if (wxIsReadable(package))
        return true;
    wxLogWarning("Plugin file '%s' isn't readable", package);
    return false;
}

void ReportUndeletable(const wxString& package)
{
    const unsigned long code = wxSysErrorCode();
    wxLogSysError(static_cast<long>(code), "Unable to delete %s", package);
}

void Describe(KzaCore::CAgentEvent& event, const wxFileName& package)
{
    const wxString text =
        wxString::Format("%s|%s|%s", getPluginName(package), package.GetName(),
                         package.GetFullPath());
    event.m_text = std::string(text.utf8_str());
    event.SetAttributeNull(&event.m_text, false);
    event.m_timeMs = KzaCore::TimeNowMillis();
    event.SetAttributeNull(&event.m_timeMs, false);
    event.m_time = static_cast<std::int32_t>(event.m_timeMs / 1000);
    event.SetAttributeNull(&event.m_time, false);
}

void Report(KzaCore::CDom& dom,
            KzaCore::CAgentEvent& event,
            std::uint32_t number,
            wxLogLevelValues level)
{
    event.m_number = number;
    event.SetAttributeNull(&event.m_number, false);
    event.m_severity = KzaCore::CAgentEvent::ToSeverity(level);
    event.SetAttributeNull(&event.m_severity, false);
    dom.AgentEventWrite(event);
}

} // namespace

bool CAgentApp::CheckKZPVersion(const wxFileName& package)
{
    return PackageVersionMatches(package);
}

// --- Removal ---------------------------------------------------------------

void CAgentApp::UninstallOldPlugins()
{
    KzaCore::CAgentEvent event;
    const wxFileName directory = BinDirectory(*m_dom);
    const wxArrayString packages = FilesIn(directory, kRemovalPackages);
    if (packages.empty())
        return;
    for (const wxString& path : packages)
    {
        const wxFileName package(path);
        Describe(event, package);
        if (ApplyRemoval(package, directory))
            Report(*m_dom, event, kRemoved, wxLOG_Info);
        else
            Report(*m_dom, event, kNotRemoved, wxLOG_Warning);
    }
    m_dom->Set(DomKey::kHeartbeatNow, true);
}

bool CAgentApp::ApplyRemoval(const wxFileName& package,
                             const wxFileName& directory)
{
    const wxString path = package.GetFullPath();
    if (!IsReadable(path))
        return false;
    APPL_TRACE("Removing files from " + path);
    if (!KzaCore::Unzip(package, directory, UninstallPluginZipCB, this))
        return false;
    APPL_TRACE(wxString::Format(
        "Successfully removed files for plugin '%s'. Deleting '%s'",
        package.GetName(), path));
    if (!RemoveFile(path))
        ReportUndeletable(path);
    return true;
}

bool CAgentApp::UninstallPluginZipCB(void* context,
                                     const wxZipEntry* entry,
                                     const wxString* destPath)
{
    return context != nullptr &&
           static_cast<CAgentApp*>(context)->UninstallPluginZipCB(entry,
                                                                  destPath);
}

bool CAgentApp::UninstallPluginZipCB(const wxZipEntry* entry,
                                     const wxString* destPath)
{
    if (entry == nullptr)
        return true;
    APPL_TRACE(wxString::Format("  removing: %s (%lu bytes)",
                                entry->GetInternalName(),
                                static_cast<unsigned long>(entry->GetSize())));
    RemoveFile(*destPath);
    return false;
}

// --- Installation ----------------------------------------------------------

void CAgentApp::InstallNewPlugins()
{
    KzaCore::CAgentEvent event;
    const wxFileName directory = BinDirectory(*m_dom);
    for (const wxString& leftover : FilesIn(directory, kLeftovers))
        RemoveFile(leftover);
    const wxArrayString packages = FilesIn(directory, kInstallPackages);
    if (packages.empty())
        return;
    for (const wxString& path : packages)
    {
        const wxFileName package(path);
        Describe(event, package);
        if (ApplyInstallation(package, directory))
            Report(*m_dom, event, kInstalled, wxLOG_Info);
        else
            Report(*m_dom, event, kNotInstalled, wxLOG_Warning);
    }
    m_dom->Set(DomKey::kHeartbeatNow, true);
}

bool CAgentApp::ApplyInstallation(const wxFileName& package,
                                  const wxFileName& directory)
{
    const wxString path = package.GetFullPath();
    if (!CheckKZPVersion(package))
    {
        wxLogWarning("Plugin file '%s' does not match KZA core version, not "
                     "installing",
                     path);
        return false;
    }
    if (!IsReadable(path))
        return false;
    APPL_TRACE("Extracting files from " + path);
    if (!KzaCore::Unzip(package, directory, InstallPluginZipCB, this))
        return false;

    // A package that is marked done must not have lost its files in a power
    // cut.
    KzaCore::SyncFileSystem(directory);

    // "Deleting": the package is out of the way, as if deleted.
    APPL_TRACE(wxString::Format(
        "Successfully extracted files for plugin '%s'. Deleting '%s'",
        package.GetName(), path));
    if (!MoveFile(path, path + kDoneSuffix))
        ReportUndeletable(path);
    return true;
}

bool CAgentApp::InstallPluginZipCB(void* context,
                                   const wxZipEntry* entry,
                                   const wxString* /*destPath*/)
{
    return context != nullptr &&
           static_cast<CAgentApp*>(context)->InstallPluginZipCB(entry);
}

bool CAgentApp::InstallPluginZipCB(const wxZipEntry* entry)
{
    if (entry != nullptr)
    {
        APPL_TRACE(wxString::Format(
            "  extracting: %s (%lu bytes)", entry->GetInternalName(),
            static_cast<unsigned long>(entry->GetSize())));
    }
    return true;
}
