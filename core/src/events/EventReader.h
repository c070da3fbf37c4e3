// SPDX-License-Identifier: Apache-2.0
//
// Reading the events of another agent, whether its process runs or not.
//
// Threads: any.

#pragma once

#include "events/StoredEvent.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KzaCore
{

struct CEventRange
{
    std::int64_t afterId = 0; // only events with a greater id
    std::int64_t last = -1;   // of these the last so many; negative for all
};

/// Reads events of a database, oldest first. Makes and changes no file. Waits
/// for at most a few seconds while another process locks the database.
///
/// \param events  Replaced by the result.
/// \param error   Set to the reason after a failure.
[[nodiscard]] bool ReadEventsOf(const std::string& path,
                                const CEventRange& range,
                                std::vector<CStoredEvent>& events,
                                std::string& error);

} // namespace KzaCore
