// SPDX-License-Identifier: Apache-2.0
//
// The note in a dump: what the agent itself has to say, as text.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/linux/CrashSignals.h"

#include "kza_core/CrashHandler.h"

#include <cstddef>

inline constexpr std::size_t kCrashNoteSize = 8192;

/// Where the note stands in the memory that a dump shows, for a debugger that
/// does not know of the stream with the same text.
extern "C" KZA_API char kza_crash_note[kCrashNoteSize];

namespace KzaCore
{

/// Writes the note into kza_crash_note.
///
/// \return its length.
std::size_t ComposeCrashNote(const CCrashPlan& plan, const CCrashCause& cause);

} // namespace KzaCore
