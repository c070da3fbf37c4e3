// SPDX-License-Identifier: Apache-2.0
//
// An agent event as it is stored in the database.

#pragma once

#include <cstdint>
#include <string>

namespace KzaCore
{

/// An attribute that was null reads as zero or empty.
struct CStoredEvent
{
    std::int64_t id = 0;
    std::int64_t number = 0;
    std::int64_t severity = 0;
    std::int64_t time = 0;   ///< seconds since the epoch
    std::int64_t timeMs = 0; ///< the same in milliseconds
    std::string text;        ///< UTF-8
};

} // namespace KzaCore
