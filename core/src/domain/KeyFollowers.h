// SPDX-License-Identifier: Apache-2.0
//
// Tells the followers of single keys, see kza_core/KeyFollower.h.
//
// Threads: any.

#pragma once

#include <string_view>

namespace KzaCore
{

class CDom;

/// Tells the followers of a key that it was set or removed in the root domain.
/// No lock may be held. Takes none while no key at all is followed.
void NotifyKeyFollowers(const CDom& root, std::string_view key);

} // namespace KzaCore
