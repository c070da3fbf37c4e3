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
/// place; nothing is left behind when that fails. Standard error says where the
/// dump is, or why there is none. Returns when the process is dead or a second
/// after the work is done.
void WriteCrashDump(const CCrashPlan& plan, const CCrashCause& cause);

} // namespace KzaCore
