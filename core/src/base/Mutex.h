// SPDX-License-Identifier: Apache-2.0
//
// The standard mutex and its guard, as locks that clang's analysis knows.
//
// Threads: any.

#pragma once

#include "base/ThreadAnnotations.h"

#include <mutex>

namespace KzaCore
{

/// Initialised at compile time: a static mutex may be locked by the
/// constructors of other static objects.
class KZA_CAPABILITY("mutex") CMutex
{
public:
    CMutex() = default;

    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;

    void Lock() KZA_ACQUIRE() { m_mutex.lock(); }
    void Unlock() KZA_RELEASE() { m_mutex.unlock(); }
    [[nodiscard]] bool TryLock() KZA_TRY_ACQUIRE(true)
    {
        return m_mutex.try_lock();
    }

private:
    friend class CLock;

    std::mutex m_mutex;
};

/// Holds a mutex while it lives.
class KZA_SCOPED_CAPABILITY CLock
{
public:
    explicit CLock(CMutex& mutex) KZA_ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    ~CLock() KZA_RELEASE() {}

    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;

    /// Releases the mutex before the object is destroyed.
    void Unlock() KZA_RELEASE() { m_lock.unlock(); }

    /// For the wait functions of std::condition_variable, which release the
    /// mutex while they wait. They call their predicate with the mutex held; a
    /// predicate that reads guarded members is marked KZA_REQUIRES.
    std::unique_lock<std::mutex>& ForWait() { return m_lock; }

private:
    std::unique_lock<std::mutex> m_lock;
};

} // namespace KzaCore
