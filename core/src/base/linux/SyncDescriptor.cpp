// SPDX-License-Identifier: Apache-2.0

#include "base/SyncDescriptor.h"

#include <unistd.h>

namespace KzaCore
{

bool SyncDescriptor(int fd)
{
    return syncfs(fd) == 0;
}

} // namespace KzaCore
