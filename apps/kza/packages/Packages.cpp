// SPDX-License-Identifier: Apache-2.0

#include "packages/Packages.h"

#include "ApplTrace.h"
#include "packages/PackageEvent.h"
#include "packages/PackageName.h"
#include "packages/SyncFileSystem.h"

#include "kza_core/Dom.h"

#include <wx/arrstr.h>
#include <wx/dir.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <string>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr char kLeftovers[] = "Agent-Core*";
constexpr char kPluginPackages[] = "*.kzp";
constexpr char kRemovalPackages[] = "*.kzu";
constexpr char kDoneSuffix[] = ".done";

// Full paths of the files in a directory whose names match, sorted by character
// code.
wxArrayString FilesIn(const wxFileName& directory, const wxString& pattern)
{
    wxArrayString files;
    wxDir::GetAllFiles(directory.GetPath(wxPATH_GET_VOLUME), &files, pattern,
                       wxDIR_FILES);
    files.Sort();
    return files;
}

// Removes a file without a record of the framework's own; the system's error is
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

// False, with a warning, when the package's path leads to another file by now
// or its content has changed: that package has not been applied.
bool IsTheOneApplied(const KzaCore::COpenedFile& applied,
                     const wxString& package)
{
    if (applied.IsInPlace() || !wxFileName::Exists(package))
        return true;
    wxLogWarning("Plugin file '%s' was replaced while it was applied. It stays "
                 "for the next start.",
                 package);
    return false;
}

void ReportUndeletable(const wxString& package)
{
    const unsigned long code = wxSysErrorCode();
    wxLogSysError(static_cast<long>(code), "Unable to delete %s", package);
}

// Deletes the signature of a package that was deleted. A signature that has
// replaced it since stays: it belongs to a package that is yet to come.
void RemoveSignature(const KzaCore::COpenedFile& signature,
                     const wxString& path)
{
    if (signature.IsOpen() && signature.IsInPlace() && !RemoveFile(path))
        ReportUndeletable(path);
}

// Renames the signature of a package that was installed. An older signature
// under the new name is deleted in any case.
void MoveSignature(const KzaCore::COpenedFile& signature,
                   const wxString& from,
                   const wxString& to)
{
    RemoveFile(to);
    if (signature.IsOpen() && signature.IsInPlace() && !MoveFile(from, to))
        ReportUndeletable(from);
}

void TraceEntry(const char* verb, const wxZipEntry& entry)
{
    APPL_TRACE(wxString::Format("  %s: %s (%lu bytes)", verb,
                                entry.GetInternalName(),
                                static_cast<unsigned long>(entry.GetSize())));
}

} // namespace

CPackages::CPackages(KzaCore::CDom& dom)
    : m_dom(dom),
      m_directory(dom.GetWxString(DomKey::kPathBin), wxEmptyString),
      m_trust(dom)
{
}

template <typename TApply>
void CPackages::ForEach(const char* pattern,
                        EPackageEvent good,
                        EPackageEvent bad,
                        TApply&& apply)
{
    CPackageEvent event;
    const wxArrayString packages = FilesIn(m_directory, pattern);
    if (packages.empty())
        return;
    for (const wxString& path : packages)
    {
        const wxFileName package(path);
        event.Begin(package);
        event.Write(m_dom, apply(package) ? good : bad);
    }
    m_dom.Set(DomKey::kHeartbeatNow, true);
}

// Unpacks a package, or walks through its names. Checks its signature where one
// is required.
bool CPackages::Unpack(const wxFileName& package,
                       bool namesOnly,
                       KzaCore::UnzipCB callback,
                       void* context,
                       CApplied& applied)
{
    const wxString signature =
        package.GetFullPath() + KzaCore::kSignatureSuffix;
    // A missing or unreadable signature matters only where one is required.
    (void)applied.signature.Open(std::string(signature.fn_str()));
    KzaCore::CUnzipOptions options;
    options.namesOnly = namesOnly;
    options.owners = m_dom.OwnerRule();
    options.keys = m_trust.Keys();
    options.signature = &applied.signature;
    options.opened = &applied.package;
    return KzaCore::Unzip(package, m_directory, callback, context, options);
}

// --- Removal ---------------------------------------------------------------

void CPackages::Remove(KzaCore::UnzipCB callback, void* context)
{
    ForEach(kRemovalPackages, EPackageEvent::Removed, EPackageEvent::NotRemoved,
            [&](const wxFileName& package)
            { return RemoveOne(package, callback, context); });
}

bool CPackages::RemoveOne(const wxFileName& package,
                          KzaCore::UnzipCB callback,
                          void* context)
{
    const wxString path = package.GetFullPath();
    if (!IsReadable(path))
        return false;
    APPL_TRACE("Removing files from " + path);
    CApplied applied;
    if (!Unpack(package, true, callback, context, applied))
        return false;
    APPL_TRACE(wxString::Format(
        "Successfully removed files for plugin '%s'. Deleting '%s'",
        package.GetName(), path));
    if (!IsTheOneApplied(applied.package, path))
        return true;
    if (RemoveFile(path))
        RemoveSignature(applied.signature, path + KzaCore::kSignatureSuffix);
    else
        ReportUndeletable(path);
    return true;
}

bool CPackages::RemoveEntry(const wxZipEntry& entry, const wxString& path)
{
    TraceEntry("removing", entry);
    RemoveFile(path); // a missing file is no failure
    return false;
}

// --- Installation ----------------------------------------------------------

void CPackages::Install(KzaCore::UnzipCB callback, void* context)
{
    for (const wxString& leftover : FilesIn(m_directory, kLeftovers))
        RemoveFile(leftover);
    ForEach(kPluginPackages, EPackageEvent::Installed,
            EPackageEvent::NotInstalled,
            [&](const wxFileName& package)
            { return InstallOne(package, callback, context); });
}

bool CPackages::InstallOne(const wxFileName& package,
                           KzaCore::UnzipCB callback,
                           void* context)
{
    const wxString path = package.GetFullPath();
    if (!PackageVersionMatches(package))
    {
        wxLogWarning("Plugin file '%s' does not match KZA core version, not "
                     "installing",
                     path);
        return false;
    }
    if (!IsReadable(path))
        return false;
    APPL_TRACE("Extracting files from " + path);
    CApplied applied;
    if (!Unpack(package, false, callback, context, applied))
        return false;

    // The files of a package that is marked as done must survive a power cut.
    SyncFileSystem(m_directory);

    // The message's words are fixed; the package is in fact renamed.
    APPL_TRACE(wxString::Format(
        "Successfully extracted files for plugin '%s'. Deleting '%s'",
        package.GetName(), path));
    if (!IsTheOneApplied(applied.package, path))
        return true;
    const wxString done = path + kDoneSuffix;
    if (MoveFile(path, done))
        MoveSignature(applied.signature, path + KzaCore::kSignatureSuffix,
                      done + KzaCore::kSignatureSuffix);
    else
        ReportUndeletable(path);
    return true;
}

bool CPackages::ExtractEntry(const wxZipEntry& entry)
{
    TraceEntry("extracting", entry);
    return true;
}
