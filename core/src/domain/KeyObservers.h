// SPDX-License-Identifier: Apache-2.0
//
// Who in the library follows which keys of the root domain.
//
// Threads: any.

#pragma once

#include <string_view>

namespace KzaCore
{

class CDom;

/// Tells the service that follows the key, if there is one, that the key was
/// set or removed. No lock may be held.
///
/// The service reads the domain anew, on this thread and before this returns.
/// One call runs at a time, so the last one has read the last change. A
/// service sets no key.
void NotifyKeyObservers(const CDom& root, std::string_view key);

/// Tells every service that the keys it follows may all have changed, the
/// domain being a new one or an empty one.
void NotifyAllKeyObservers(const CDom& root);

} // namespace KzaCore
