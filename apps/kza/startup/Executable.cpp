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
    // By name: a link of any kind in the current directory leads to the
    // program, but what lies beside it does not belong to the program.
    const wxFileName named = ExecutableFrom(firstWord);
    return named.GetFullPath() == RunningProgram() ? wxString()
                                                   : named.GetPath();
}

wxString NormalizedDirectory(wxFileName directory)
{
    directory.Normalize(kNormalization);
    return directory.GetPath();
}
