// SPDX-License-Identifier: Apache-2.0
//
// The times at which the log says that an application does not follow a stop
// request: after 10 s, and each time that the time since the request has
// doubled.
//
// Plain arithmetic without a clock. Threads: one object belongs to one thread.

#pragma once

#include <chrono>

class CStopReminder
{
public:
    /// The time from the stop request to the next reminder.
    [[nodiscard]] std::chrono::seconds Next() const { return m_next; }

    /// Takes the reminder that is due.
    ///
    /// \param elapsed  The time since the stop request.
    ///
    /// \return the time from the stop request at which the reminder was due; of
    ///         several, that of the latest; zero when none is due.
    std::chrono::seconds Take(std::chrono::steady_clock::duration elapsed);

private:
    std::chrono::seconds m_next{10};
};
