// SPDX-License-Identifier: Apache-2.0
//
// Freeing memory that readers may use without a lock.
//
// A reader holds a CEpochGuard while it follows guarded pointers. A writer
// replaces such a pointer and retires the object that the pointer led to. The
// object is freed once every reader that may have reached it has released its
// guard. A reader stores only to its own thread's slot, and a writer only to
// its own thread's list.
//
// Users must load and replace guarded pointers with std::memory_order_seq_cst.
// Epoch.cpp has the proof that this is enough.
//
// Threads: any; guards may be nested. A child that was forked from a process
// with one thread goes on.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// Base of the objects that guarded pointers lead to.
class CRetirable
{
public:
    virtual ~CRetirable() = default;

    CRetirable(const CRetirable&) = delete;
    CRetirable& operator=(const CRetirable&) = delete;

protected:
    CRetirable() = default;

private:
    friend class CGarbage;
    friend class CRetired;

    // For the list of retired objects. Mutable, because retired objects are
    // const.
    mutable const CRetirable* m_next = nullptr;
    mutable std::uint64_t m_epoch = 0;
};

/// Objects that no reader can reach; its destructor frees them.
class CGarbage
{
public:
    CGarbage() = default;
    explicit CGarbage(const CRetirable* first) : m_first(first) {}
    ~CGarbage();

    CGarbage(const CGarbage&) = delete;
    CGarbage& operator=(const CGarbage&) = delete;

private:
    const CRetirable* m_first = nullptr; // oldest first
};

/// Retired objects that a reader may still use, oldest first. A reader that
/// holds its guard for long costs memory but no time: Collect() stops at the
/// first object that must stay.
///
/// Threads: one at a time.
class CRetired
{
public:
    CRetired() = default;

    /// Frees all objects. No reader may be left.
    ~CRetired();

    CRetired(const CRetired&) = delete;
    CRetired& operator=(const CRetired&) = delete;

    /// Takes an object that no pointer leads to any longer.
    ///
    /// \param bytes  The object's approximate size with all that it owns.
    void Add(const CRetirable* object, std::size_t bytes);

    /// Hands out the objects that no reader can reach, in batches.
    [[nodiscard]] CGarbage Collect();

private:
    const CRetirable* m_oldest = nullptr;
    const CRetirable* m_newest = nullptr; // valid while there is an oldest
    std::size_t m_count = 0;              // since the last batch
    std::size_t m_bytes = 0;              // likewise
};

/// The slot of one thread. When the thread ends, another thread takes it over.
// The padding keeps the thread's own list off the cache line that the writers
// of all threads read.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct alignas(64) CEpochSlot
{
    // The epoch in which the thread began to read; 0 while it does not read.
    std::atomic<std::uint64_t> epoch{0};
    std::atomic<bool> used{true};
    CEpochSlot* next = nullptr;

    alignas(64) CRetired retired;
};

namespace EpochDetail
{

extern std::atomic<std::uint64_t> g_epoch; // counts from 1

// Every read of the domain uses this variable. Unlike thread_local, __thread
// needs no wrapper function, and with the initial-exec model no call is needed
// to find the variable: two calls less for each read.
extern __thread CEpochSlot* t_slot __attribute__((tls_model("initial-exec")));

/// Gives the calling thread its slot.
CEpochSlot& TakeSlot();

inline CEpochSlot& Slot()
{
    return t_slot != nullptr ? *t_slot : TakeSlot();
}

} // namespace EpochDetail

/// While a guard exists, no object is freed that its thread has reached through
/// guarded pointers since.
class CEpochGuard
{
public:
    CEpochGuard()
        : m_slot(EpochDetail::Slot()),
          m_isOutermost(m_slot.epoch.load(std::memory_order_relaxed) == 0)
    {
        if (m_isOutermost)
            m_slot.epoch.store(
                EpochDetail::g_epoch.load(std::memory_order_seq_cst),
                std::memory_order_seq_cst);
    }

    ~CEpochGuard()
    {
        if (m_isOutermost)
            m_slot.epoch.store(0, std::memory_order_release);
    }

    CEpochGuard(const CEpochGuard&) = delete;
    CEpochGuard& operator=(const CEpochGuard&) = delete;

private:
    CEpochSlot& m_slot;
    const bool m_isOutermost;
};

/// Takes an object that no guarded pointer leads to any longer. The calling
/// thread frees it later.
///
/// \param bytes  The object's approximate size with all that it owns.
inline void Retire(const CRetirable* object, std::size_t bytes)
{
    EpochDetail::Slot().retired.Add(object, bytes);
}

/// Frees, in batches, the objects that the calling thread has retired and that
/// no reader can reach. To be called outside of guards and locks.
inline void FreeRetired()
{
    const CGarbage garbage = EpochDetail::Slot().retired.Collect();
}

} // namespace KzaCore
