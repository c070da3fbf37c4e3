// SPDX-License-Identifier: Apache-2.0

#include "packages/ArchivePath.h"

#include "ApplTrace.h"
#include "Tokenize.h"
#include "packages/ExtensionVersion.h"

#include <wx/arrstr.h>
#include <wx/config.h>
#include <wx/dir.h>
#include <wx/filename.h>
#include <wx/log.h>

namespace
{

constexpr wchar_t kExtension[] = L"kze";
constexpr wchar_t kCoreName[] = L"kza";
constexpr wchar_t kCoreDirectory[] = L"kza_core";
constexpr char kWildcards[] = "*?";
constexpr wchar_t kSeparator[] = L";";

bool HasWildcard(const wxString& text)
{
    return text.find_first_of(kWildcards) != wxString::npos;
}

void Append(wxString& list, const wxString& item)
{
    if (!list.empty())
        list += kSeparator;
    list += item;
}

// Makes a relative path absolute, with the directory as its base. Without a
// directory the path is cleared: the framework would take the current one.
void NormalizeAgainst(wxFileName& file, const wxString& directory)
{
    if (directory.empty() && !file.IsAbsolute())
        file.Clear();
    else
        file.Normalize(wxPATH_NORM_DOTS | wxPATH_NORM_TILDE |
                           wxPATH_NORM_ABSOLUTE,
                       directory);
}

bool IsOwnerRight(const wxString& path, const CArchivePathSources& sources)
{
    KzaCore::TChangeable changeable;
    KzaCore::JudgePath(std::string(path.fn_str()), changeable);
    return KzaCore::Tolerate(changeable, sources.owners);
}

// The application's own archive, then the core's. For an application with the
// core's name, both are the same.
wxString CoreArchives(const CArchivePathSources& sources)
{
    wxString list;
    if (sources.bin.empty())
        return list;
    wxString directory = sources.bin;
    if (!directory.EndsWith(L"/")) // only the root directory ends with one
        directory += L'/';
    directory << kCoreDirectory << L'/';
    for (const wxString& name : {sources.application, wxString(kCoreName)})
    {
        wxString archive = directory;
        archive << name << L'.' << kExtension;
        if (wxFileExists(archive) && IsOwnerRight(archive, sources))
            Append(list, archive);
        if (sources.application == kCoreName)
            break;
    }
    return list;
}

// Full paths of the regular files that match a file name with wildcards, sorted
// by character code.
wxArrayString Matches(const wxFileName& pattern)
{
    wxArrayString found;
    const wxString directory =
        pattern.GetPath(wxPATH_GET_VOLUME | wxPATH_GET_SEPARATOR);
    // For the framework, an empty pattern would match every name.
    if (!pattern.HasName() && !pattern.HasExt())
        return found;
    if (!wxFileName::IsDirReadable(directory))
        return found;
    const wxDir dir(directory);
    wxString name;
    for (bool more = dir.IsOpened() &&
                     dir.GetFirst(&name, pattern.GetFullName(), wxDIR_FILES);
         more; more = dir.GetNext(&name))
    {
        wxFileName match(directory, name);
        match.Normalize(wxPATH_NORM_DOTS | wxPATH_NORM_TILDE |
                        wxPATH_NORM_ABSOLUTE);
        // The framework counts pipes and devices as files.
        if (match.FileExists())
            found.Add(match.GetFullPath());
    }
    found.Sort();
    return found;
}

// The items, followed by the pattern for the extension directory.
wxString WithExtensions(const CArchivePathSources& sources)
{
    wxString items = sources.items;
    if (sources.extensions.empty())
        return items;
    wxFileName pattern(sources.extensions, "*", kExtension);
    NormalizeAgainst(pattern, sources.bin);
    if (pattern.IsOk() && pattern.DirExists() &&
        IsOwnerRight(pattern.GetPath(wxPATH_GET_VOLUME), sources))
        Append(items, pattern.GetFullPath());
    return items;
}

void AddArchives(const wxString& item,
                 const CArchivePathSources& sources,
                 wxString& list)
{
    // The version of a file that is named without a wildcard is not checked:
    // the operator has chosen this very file.
    const bool isPattern = HasWildcard(item);
    wxFileName file(wxExpandEnvVars(item));
    if (!file.IsAbsolute())
        NormalizeAgainst(file, sources.bin);

    const wxArrayString matches = Matches(file);
    if (matches.empty() && !HasWildcard(file.GetFullName()))
        wxLogWarning("%s: no matches", item);
    for (const wxString& match : matches)
    {
        if (!wxFileName::IsFileReadable(match))
        {
            wxLogWarning("Extension file '%s' isn't readable", match);
            continue;
        }
        if (!IsOwnerRight(match, sources) ||
            (isPattern && !ExtensionVersionMatches(match, sources.owners)))
            continue;
        APPL_TRACE(L"Adding extension file '" + match +
                   L"' to the search path.");
        Append(list, match);
    }
}

} // namespace

wxString ExpandArchivePath(const CArchivePathSources& sources)
{
    wxString list = CoreArchives(sources);
    const wxString specification = WithExtensions(sources);
    APPL_TRACE(L"zipFilespec: " + specification);
    std::list<wxString> items;
    Tokenize(items, specification, kSeparator);
    for (const wxString& item : items)
        AddArchives(item, sources, list);
    return list;
}
