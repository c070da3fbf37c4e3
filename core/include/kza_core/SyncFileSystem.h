// SPDX-License-Identifier: Apache-2.0
//
// Getting what was written to the disk.
//
// Threads: any.

#pragma once

#include "kza_core/Export.h"

class wxFileName;

namespace KzaCore
{

/// Waits until all that was written to the file system of a directory is on
/// disk. One such wait costs less than one for each of many files.
///
/// \return false when the system reports an error; the reason is logged.
KZA_API bool SyncFileSystem(const wxFileName& directory);

} // namespace KzaCore
