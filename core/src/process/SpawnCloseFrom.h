// SPDX-License-Identifier: Apache-2.0
//
// Closing descriptors in a child that posix_spawn() starts.
//
// Threads: any.

#pragma once

#include <spawn.h>

namespace KzaCore
{

/// Makes the child that is started with `actions` close every descriptor from
/// `first` up. To be added after all other actions.
void SpawnCloseFrom(posix_spawn_file_actions_t& actions, int first);

} // namespace KzaCore
