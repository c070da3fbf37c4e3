// SPDX-License-Identifier: Apache-2.0
//
// The helper's work.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/linux/CrashSignals.h"

namespace KzaCore
{

/// Writes the dump aside, keeps the one before, and renames the new one into
/// place; nothing is left behind when that fails.
///
/// \return 0, or the errno that says why there is no dump.
int WriteCrashDump(const CrashPlan& plan, const CrashCause& cause);

} // namespace KzaCore
