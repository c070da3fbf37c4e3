// SPDX-License-Identifier: Apache-2.0
//
// Threads: any.

#pragma once

#include <spawn.h>

namespace KzaCore
{

/// Makes the child that is started with `actions` close every descriptor from
/// `first` up. Comes after the other actions.
void SpawnCloseFrom(posix_spawn_file_actions_t& actions, int first);

} // namespace KzaCore
