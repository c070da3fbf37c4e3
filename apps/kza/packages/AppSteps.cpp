// SPDX-License-Identifier: Apache-2.0
//
// Steps of the script thread: remove and install packages, then find the
// archives that modules are searched in, before any Lua runs.

#include "AgentApp.h"
#include "ApplTrace.h"
#include "packages/ArchivePath.h"
#include "packages/ExtensionVersion.h"
#include "packages/PackageName.h"
#include "packages/Packages.h"

#include "kza_core/Dom.h"

#include <memory>
#include <utility>

namespace DomKey = KzaCore::DomKey;

// --- Packages --------------------------------------------------------------

// Both steps use one object, so that the keys are read once.
CPackages& CAgentApp::Packages()
{
    if (!m_packages)
        m_packages = std::make_unique<CPackages>(*m_dom);
    return *m_packages;
}

void CAgentApp::UninstallOldPlugins()
{
    Packages().Remove(UninstallPluginZipCB, this);
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
    return entry == nullptr || CPackages::RemoveEntry(*entry, *destPath);
}

void CAgentApp::InstallNewPlugins()
{
    Packages().Install(InstallPluginZipCB, this);
    m_packages.reset(); // its keys must be freed before OpenSSL is shut down
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
    return entry == nullptr || CPackages::ExtractEntry(*entry);
}

bool CAgentApp::CheckKZPVersion(const wxFileName& package)
{
    return PackageVersionMatches(package);
}

// --- Archives of modules ---------------------------------------------------

bool CAgentApp::ExtensionVersionIsOK(const wxString& extensionPath)
{
    return ExtensionVersionMatches(extensionPath, m_dom->OwnerRule());
}

void CAgentApp::ExpandZippath()
{
    const wxString list = ExpandArchivePath(
        {InstallationDirectory(), GetAppName(),
         std::exchange(m_zipPath, wxString()), m_extDir, m_dom->OwnerRule()});
    if (list.empty())
    {
        APPL_TRACE(L"app.lua.zippath empty ");
        return;
    }
    m_dom->SetWx(DomKey::kLuaZipPath, list);
    APPL_TRACE(L"app.lua.zippath '" + list + L"' ");
}
