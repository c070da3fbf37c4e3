// SPDX-License-Identifier: Apache-2.0
//
// The events that the agent keeps about itself: the SQLite database
// `<app.path.work>/events.db`.
//
//   agent_event(id integer primary key, number, severity, time, time_ms, text)
//
// It is written ahead of its log with full synchronisation: a stored event
// survives a power cut. The first use in a process opens it. A connection that
// a forked child inherits is never touched there; the child opens its own.
//
// Threads: any; one lock guards the process's only connection and is held
// while the disk is waited for.

#pragma once

#include "events/StoredEvent.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KzaCore
{

class CAgentEvent;
class CDom;

/// Stores an event.
///
/// A database that is damaged, or locked by somebody else for longer than a
/// few seconds, is set aside under another name and begun anew. The event that
/// met it is written to the log as an error besides.
///
/// \return its id, 0 when it could not be stored and is only in the log.
std::int64_t WriteEvent(const CDom& dom, const CAgentEvent& event);

/// Reads events, oldest first. A database that does not exist has none.
///
/// \param afterId  Only events with a greater id.
/// \param limit    At most so many; negative for all.
/// \param events   Replaced by the result.
/// \param error    Set to the reason after a failure.
[[nodiscard]] bool ReadEvents(const CDom& dom,
                              std::int64_t afterId,
                              std::int64_t limit,
                              std::vector<CStoredEvent>& events,
                              std::string& error);

/// Closes the database; a later use opens it again. To be called before SQLite
/// is shut down.
void CloseEventStore();

} // namespace KzaCore
