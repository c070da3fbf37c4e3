// SPDX-License-Identifier: Apache-2.0
//
// POSIX knows all file systems or one file. All of them may include one that
// hangs, but one file says nothing about the others.

#include "base/SyncDescriptor.h"

#include <unistd.h>

namespace KzaCore
{

bool SyncDescriptor(int /*fd*/)
{
    sync();
    return true;
}

} // namespace KzaCore
