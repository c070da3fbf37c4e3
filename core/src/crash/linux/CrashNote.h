// SPDX-License-Identifier: Apache-2.0
//
// The note in a dump: text by the agent with the application's name, the cause
// of the crash and the tracebacks of Lua.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/linux/CrashSignals.h"

#include "kza_core/CrashHandler.h"

#include <cstddef>

inline constexpr std::size_t kCrashNoteSize = 8192;

/// The note in the memory that a dump contains, for a debugger that cannot show
/// the stream with the same text.
extern "C" KZA_API char kza_crash_note[kCrashNoteSize];

namespace KzaCore
{

/// Writes the note into kza_crash_note.
///
/// \return its length.
std::size_t ComposeCrashNote(const CCrashPlan& plan, const CCrashCause& cause);

} // namespace KzaCore
