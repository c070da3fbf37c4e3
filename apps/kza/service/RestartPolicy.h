// SPDX-License-Identifier: Apache-2.0
//
// The rule by which the watchdog starts workers again: recent starts, back-off
// and giving up as plain arithmetic, without a clock or a process.
//
// Threads: one object belongs to one thread.

#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <ctime>

class CRestartPolicy
{
public:
    /// Starts that are remembered; one more within the period is refused.
    static constexpr int kMaxRecentStarts = 8;
    /// Seconds for which a start counts as recent.
    static constexpr int kPeriodSeconds = 512;
    /// Delay after one recent start; each further one doubles it.
    static constexpr int kBaseDelayMs = 1000;

    struct CDecision
    {
        bool allowed = false;
        int recentStarts = 0; // 0 to kMaxRecentStarts
        std::chrono::milliseconds delay{0};
    };

    /// Decides about a start that is due.
    ///
    /// \param now  Seconds since the epoch.
    [[nodiscard]] CDecision BeforeStart(time_t now) const;

    /// Remembers a start.
    ///
    /// \param now  The value passed to BeforeStart(): the time before the
    ///             delay.
    void NoteStart(time_t now);

private:
    [[nodiscard]] int CountRecentStarts(time_t now) const;

    std::array<time_t, kMaxRecentStarts> m_starts{};
    std::size_t m_next = 0;
};
