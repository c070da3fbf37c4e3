// SPDX-License-Identifier: Apache-2.0
//
// A queue of the values of a watched key, from the threads that set the key to
// the main thread.

#pragma once

#include "base/Mutex.h"
#include "kza_core/KeyFollower.h"

#include <deque>
#include <functional>
#include <string>

class CKeyChanges
{
public:
    /// The length of the queue. When it is full, a new value replaces the last
    /// one.
    static constexpr std::size_t kMaxWaiting = 1000;

    /// Puts the present value into the queue at once.
    ///
    /// \param waiting  Called when a value was put into the empty queue, on the
    ///                 thread that set the key; by the constructor, too.
    CKeyChanges(const KzaCore::CDom& root,
                const std::string& key,
                std::function<void()> waiting);

    /// Takes all values from the queue, oldest first. Threads: any.
    [[nodiscard]] std::deque<KzaCore::DomValue> Take();

private:
    void Put(const KzaCore::DomValue& value);

    const std::function<void()> m_waitingCB;
    KzaCore::CMutex m_mutex;
    std::deque<KzaCore::DomValue> m_waiting KZA_GUARDED_BY(m_mutex);

    // The last member: its constructor calls Put(), which uses the others, and
    // its destructor ends these calls before the others are destroyed.
    KzaCore::CKeyFollower m_follower;
};
