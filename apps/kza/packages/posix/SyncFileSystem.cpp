// SPDX-License-Identifier: Apache-2.0
//
// POSIX knows all file systems or one file. All of them may include one that
// hangs, but one file says nothing about the others.

#include "packages/SyncFileSystem.h"

#include <unistd.h>

bool SyncFileSystem(const wxFileName& /*directory*/)
{
    sync();
    return true;
}
