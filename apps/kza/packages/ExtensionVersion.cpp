// SPDX-License-Identifier: Apache-2.0

#include "packages/ExtensionVersion.h"

#include "AgentApp.h"
#include "Tokenize.h"
#include "Version.h"

#include <wx/crt.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/wfstream.h>

#include <algorithm>
#include <list>
#include <string>

namespace
{

// The framework's reader of lines loses what follows a NUL, so the text is
// taken as a whole.
wxString TextOf(wxInputStream& in)
{
    std::string bytes;
    char part[4096];
    do
    {
        in.Read(part, sizeof(part));
        bytes.append(part, in.LastRead());
    } while (in.IsOk() && in.LastRead() > 0);
    wxString text(bytes.data(), wxConvAuto(), bytes.size());
    if (text.empty()) // neither: the line that counts is in ASCII
        text = wxString(bytes.data(), wxConvISO8859_1, bytes.size());
    return text;
}

} // namespace

bool FindVersionLine(wxInputStream& text, wxString& rest)
{
    std::list<wxString> lines;
    Tokenize(lines, TextOf(text), L"\r\n");
    return std::any_of(lines.begin(), lines.end(),
                       [&rest](const wxString& line)
                       { return line.StartsWith("version:", &rest); });
}

bool ParseExtensionVersion(const wxString& rest, SExtensionVersion& version)
{
    return wxSscanf(rest, "%d.%d.%d-%d", &version.major, &version.minor,
                    &version.patch, &version.build) == 4;
}

bool CAgentApp::ExtensionVersionIsOK(const wxString& extensionPath)
{
    const wxString sideFile = extensionPath + ".version";
    if (!wxFileName::FileExists(sideFile))
    {
        wxLogWarning("Extension file '%s' does not have a corresponding "
                     "'.version' file. It will not be enabled.",
                     extensionPath);
        return false;
    }
    wxFFileInputStream text(sideFile, "rb");
    wxString rest;
    if (!FindVersionLine(text, rest))
    {
        wxLogWarning("File '%s' does not contain a 'version:' line. Extension "
                     "'%s' will not be enabled.",
                     sideFile, extensionPath);
        return false;
    }
    SExtensionVersion version;
    if (!ParseExtensionVersion(rest, version))
    {
        wxLogWarning("File '%s' did not contain a properly formatted "
                     "'version:' line. Extension '%s' will not be enabled.",
                     sideFile, extensionPath);
        return false;
    }
    if (version.major == Version::kMajor && version.minor == Version::kMinor &&
        version.patch == Version::kPatch)
        return true;
    wxLogWarning("Ignoring extension '%s' since its version (%d.%d.%d) doesn't "
                 "match ours (%d.%d.%d)",
                 extensionPath, version.major, version.minor, version.patch,
                 Version::kMajor, Version::kMinor, Version::kPatch);
    return false;
}
