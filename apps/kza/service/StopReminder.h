// SPDX-License-Identifier: Apache-2.0
//
// When the log shall say that an application does not follow a stop request:
// after 10 s, and each time that the time since the request has doubled.
//
// Plain arithmetic without a clock. Threads: one object belongs to one thread.

#pragma once

#include <chrono>

class CStopReminder
{
public:
    /// When the next reminder is due, counted from the stop request.
    [[nodiscard]] std::chrono::seconds Next() const { return m_next; }

    /// Takes the reminder that is due.
    ///
    /// \param elapsed  The time since the stop request.
    ///
    /// \return when it was due, counted from the stop request; the latest one
    ///         where several were; zero when none is due.
    std::chrono::seconds Take(std::chrono::steady_clock::duration elapsed);

private:
    std::chrono::seconds m_next{10};
};
