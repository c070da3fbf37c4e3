// SPDX-License-Identifier: Apache-2.0

#include "process/SpawnCloseFrom.h"

namespace KzaCore
{

void SpawnCloseFrom(posix_spawn_file_actions_t& actions, int first)
{
    posix_spawn_file_actions_addclosefrom_np(&actions, first);
}

} // namespace KzaCore
