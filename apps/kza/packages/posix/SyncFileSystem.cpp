// SPDX-License-Identifier: Apache-2.0
//
// POSIX can write all file systems to disk, or one file. All file systems may
// include one that hangs; but writing one file would not be enough.

#include "packages/SyncFileSystem.h"

#include <unistd.h>

bool SyncFileSystem(const wxFileName& /*directory*/)
{
    sync();
    return true;
}
