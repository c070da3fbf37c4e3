// SPDX-License-Identifier: Apache-2.0
//
// The archives that Lua modules are searched in, in order.
//
// Threads: any. Reads directories and side files, changes nothing. A file that
// cannot be used is a warning or silence and never fails the start.

#pragma once

#include <wx/string.h>

struct CArchivePathSources
{
    wxString bin;         ///< directory of the executable, where relative
                          ///< items start; empty when nothing may be taken
                          ///< from there, which leaves them out
    wxString application; ///< name of the application
    wxString items;       ///< of --zippath: file names joined by ";", with
                          ///< wildcards and environment variables
    wxString extensions;  ///< directory of --extdir, empty for none
};

/// The application's own archive, the core's, what the items match, and the
/// archives of the extension directory.
///
/// \return absolute paths joined by ";", empty when there is no archive.
[[nodiscard]] wxString ExpandArchivePath(const CArchivePathSources& sources);
