// SPDX-License-Identifier: Apache-2.0
//
// One agent event: a report of the agent about itself.
//
// Threads: one object belongs to one thread at a time.

#pragma once

#include "kza_core/Export.h"
#include "kza_core/XMLObject.h"

#include <cstdint>
#include <string>

namespace KzaCore
{

class KZA_API CAgentEvent : public XMLObject
{
public:
    /// An empty event: every attribute is null.
    CAgentEvent();

    /// The severity of an event for a level of the framework's log (2 is
    /// warning, 5 is information). Equal to the level; a level beyond the
    /// framework's is taken as its highest.
    static std::uint32_t ToSeverity(unsigned long level);

    // Set an attribute, then clear its null mark with SetAttributeNull().

    std::string m_text;           ///< UTF-8
    std::uint32_t m_number = 0;   ///< the kind of event
    std::uint32_t m_severity = 0; ///< see ToSeverity()
    std::int32_t m_time = 0;      ///< seconds since the epoch
    std::int64_t m_timeMs = 0;    ///< the same time in milliseconds
};

} // namespace KzaCore
