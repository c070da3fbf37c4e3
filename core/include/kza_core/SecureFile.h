// SPDX-License-Identifier: Apache-2.0
//
// Access rights of files and directories that the agent creates.
//
// Threads: any.

#pragma once

#include "kza_core/Export.h"

class wxString;

namespace KzaCore
{

/// Leaves the owner alone with access: 0700 on a directory, 0600 on a file. A
/// symbolic link is not followed and is an error.
///
/// \param reserved  Must be false.
///
/// \return false when the rights could not be set; the reason is logged.
KZA_API bool SecureFileOrDirectory(const wxString& path, bool reserved);

} // namespace KzaCore
