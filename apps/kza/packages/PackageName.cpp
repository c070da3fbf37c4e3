// SPDX-License-Identifier: Apache-2.0

#include "packages/PackageName.h"

#include "Version.h"

#include <wx/filename.h>

namespace
{

// Cuts the text off before the last occurrence of a character; false when it
// does not occur.
bool CutAtLast(wxString& text, wxUniChar character)
{
    const auto at = text.rfind(character);
    if (at == wxString::npos)
        return false;
    text.erase(at);
    return true;
}

} // namespace

wxString getPluginName(const wxFileName& package)
{
    wxString name = package.GetName();
    const auto first = name.find('-');
    if (first == wxString::npos)
        return name;
    name.erase(0, first + 1);
    return name.substr(0, name.find('-'));
}

bool PackageVersionMatches(const wxFileName& package)
{
    wxString name = package.GetName();
    if (!CutAtLast(name, '.') || !CutAtLast(name, '-'))
        return true;
    const auto last = name.rfind('-');
    if (last == wxString::npos || last + 1 == name.length())
        return true;
    return name.substr(last + 1) ==
           wxString::Format("%d.%d.%d", Version::kMajor, Version::kMinor,
                            Version::kPatch);
}
