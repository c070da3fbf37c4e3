// SPDX-License-Identifier: Apache-2.0

#include "process/EndWithParent.h"

namespace KzaCore
{

void EndWithParent(pid_t /*parent*/)
{
}

} // namespace KzaCore
