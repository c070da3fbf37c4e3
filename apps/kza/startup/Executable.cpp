// SPDX-License-Identifier: Apache-2.0

#include "startup/Executable.h"

#include "startup/RunningProgram.h"

#include <wx/filename.h>

namespace
{

constexpr int kNormalization =
    wxPATH_NORM_DOTS | wxPATH_NORM_TILDE | wxPATH_NORM_ABSOLUTE;

} // namespace

wxFileName ExecutableFrom(const wxString& firstWord)
{
    wxFileName file(firstWord);
    file.Normalize(kNormalization);
    return file;
}

wxString UntrustedDirectory(const wxString& firstWord)
{
    if (firstWord.Contains("/"))
        return {};
    // Names are compared, and not files: a link in the current directory may
    // lead to the program, but the files beside the link do not belong to it.
    const wxFileName named = ExecutableFrom(firstWord);
    return named.GetFullPath() == RunningProgram() ? wxString()
                                                   : named.GetPath();
}

wxString NormalizedDirectory(wxFileName directory)
{
    directory.Normalize(kNormalization);
    return directory.GetPath();
}
