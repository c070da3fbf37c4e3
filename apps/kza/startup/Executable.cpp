// SPDX-License-Identifier: Apache-2.0

#include "startup/Executable.h"

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

wxString NormalizedDirectory(wxFileName directory)
{
    directory.Normalize(kNormalization);
    return directory.GetPath();
}
