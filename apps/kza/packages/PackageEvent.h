// SPDX-License-Identifier: Apache-2.0
//
// The agent event that reports the outcome for a package.
//
// Threads: one object belongs to one thread.

#pragma once

#include "kza_core/AgentEvent.h"

class wxFileName;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

enum class EPackageEvent : std::uint32_t
{
    Installed = 5101,
    NotInstalled = 5102,
    Removed = 5105,
    NotRemoved = 5106
};

/// One event object, reused for each package.
class CPackageEvent
{
public:
    /// Sets the text and the time for a package that is about to be applied.
    void Begin(const wxFileName& package);

    /// Stores the event; its severity is Info after a success, else Warning.
    void Write(KzaCore::CDom& dom, EPackageEvent outcome);

private:
    KzaCore::CAgentEvent m_event;
};
