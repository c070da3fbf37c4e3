// SPDX-License-Identifier: Apache-2.0

#include "service/StopReminder.h"

std::chrono::seconds CStopReminder::Take(
    std::chrono::steady_clock::duration elapsed)
{
    std::chrono::seconds due{0};
    while (m_next <= elapsed)
    {
        due = m_next;
        m_next *= 2;
    }
    return due;
}
