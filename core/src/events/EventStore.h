// SPDX-License-Identifier: Apache-2.0
//
// The events that the agent keeps about itself: the SQLite database
// `<app.path.work>/events.db`.
//
//   agent_event(id integer primary key, number, severity, time, time_ms, text)
//
// The database uses a write-ahead log with full synchronisation: a stored event
// survives a power cut. The first use in a process opens the database. A forked
// child does not use the connection that it inherits; it opens its own.
//
// Threads: any; one lock guards the process's only connection and is held
// during a wait for the disk.

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
/// A database that is damaged, or that another process locks for longer than a
/// few seconds, is renamed, and a new one is made. The event that could not be
/// stored at first is also written to the log as an error.
///
/// \return the event's id, 0 when it could not be stored and is only in the
///         log.
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

/// Closes the database; a later use opens it again. Must be called before
/// SQLite is shut down.
void CloseEventStore();

} // namespace KzaCore
