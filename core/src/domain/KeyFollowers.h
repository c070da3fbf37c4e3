// SPDX-License-Identifier: Apache-2.0
//
// Calling the followers of single keys; kza_core/KeyFollower.h describes them.
//
// Threads: any.

#pragma once

#include <string_view>

namespace KzaCore
{

class CDom;

/// Tells the followers of a key that the key was set or removed in the root
/// domain. The caller holds no lock. Takes no lock while there is no follower
/// of any key.
void NotifyKeyFollowers(const CDom& root, std::string_view key);

} // namespace KzaCore
