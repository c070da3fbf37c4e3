// SPDX-License-Identifier: Apache-2.0

#include "packages/ExtensionVersion.h"

#include "Version.h"
#include "packages/SideFile.h"

#include <wx/log.h>

namespace
{

bool IsOurs(const CExtensionVersion& version)
{
    return version.major == Version::kMajor &&
           version.minor == Version::kMinor && version.patch == Version::kPatch;
}

} // namespace

bool ExtensionVersionMatches(const wxString& extensionPath,
                             KzaCore::EOwnerRule owners)
{
    const wxString sideFile = extensionPath + ".version";
    CExtensionVersion version;
    switch (ReadSideFile(sideFile, owners, version))
    {
    case ESideFile::Refused:
        return false;
    case ESideFile::Missing:
        wxLogWarning("Extension file '%s' does not have a corresponding "
                     "'.version' file. It will not be enabled.",
                     extensionPath);
        return false;
    case ESideFile::NoVersionLine:
        wxLogWarning("File '%s' does not contain a 'version:' line. Extension "
                     "'%s' will not be enabled.",
                     sideFile, extensionPath);
        return false;
    case ESideFile::Malformed:
        wxLogWarning("File '%s' did not contain a properly formatted "
                     "'version:' line. Extension '%s' will not be enabled.",
                     sideFile, extensionPath);
        return false;
    case ESideFile::Good:
        break;
    }
    if (IsOurs(version))
        return true;
    wxLogWarning("Ignoring extension '%s' since its version (%d.%d.%d) doesn't "
                 "match ours (%d.%d.%d)",
                 extensionPath, version.major, version.minor, version.patch,
                 Version::kMajor, Version::kMinor, Version::kPatch);
    return false;
}
