// SPDX-License-Identifier: Apache-2.0
//
// The values of a watched key, on their way from the threads that set it to the
// main thread.

#pragma once

#include "base/Mutex.h"
#include "kza_core/KeyFollower.h"

#include <deque>
#include <functional>
#include <string>

class CKeyChanges
{
public:
    /// Values that may wait to be taken. Of more, the newest takes the place of
    /// the one before it.
    static constexpr std::size_t kMaxWaiting = 1000;

    /// The present value waits to be taken at once.
    ///
    /// \param waiting  Called on the thread that set the key when a value waits
    ///                 where none did, also for the present one.
    CKeyChanges(const KzaCore::CDom& root,
                const std::string& key,
                std::function<void()> waiting);

    /// The values that wait, oldest first. Threads: any.
    [[nodiscard]] std::deque<KzaCore::DomValue> Take();

private:
    void Put(const KzaCore::DomValue& value);

    const std::function<void()> m_waitingCB;
    KzaCore::CMutex m_mutex;
    std::deque<KzaCore::DomValue> m_waiting KZA_GUARDED_BY(m_mutex);

    // Last: it puts the present value, and no change comes while the rest is
    // destroyed.
    KzaCore::CKeyFollower m_follower;
};
