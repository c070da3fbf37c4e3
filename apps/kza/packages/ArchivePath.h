// SPDX-License-Identifier: Apache-2.0
//
// The archives that Lua modules are searched in, in order.
//
// Threads: any. Reads directories and side files, changes nothing. A file that
// cannot be used is left out, with or without a warning; the start goes on.

#pragma once

#include "kza_core/Owner.h"

#include <wx/string.h>

struct CArchivePathSources
{
    wxString bin;         ///< directory of the executable, the base of relative
                          ///< items; empty when it is not trusted, which leaves
                          ///< these items out
    wxString application; ///< name of the application
    wxString items;       ///< of --zippath: file names joined by ";", with
                          ///< wildcards and environment variables
    wxString extensions;  ///< directory of --extdir, empty for none

    /// For archives, side files and the directory of --extdir that others can
    /// change.
    KzaCore::EOwnerRule owners = KzaCore::EOwnerRule::Ignore;
};

/// The application's own archive, the core's, the files that match the items,
/// and the archives of the extension directory.
///
/// \return absolute paths joined by ";", empty when there is no archive.
[[nodiscard]] wxString ExpandArchivePath(const CArchivePathSources& sources);
