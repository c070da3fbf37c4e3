// SPDX-License-Identifier: Apache-2.0
//
// Memory that readers without locks may still be looking at.
//
// A reader holds a CEpochGuard while it follows pointers; what a writer took
// out of reach it retires, and it is freed once every reader that could have
// seen it has left. Readers and writers write to memory of their own thread
// and to nothing else.
//
// The order that makes it safe is that of sequentially consistent operations:
// readers load the guarded pointers, and writers replace them, with
// std::memory_order_seq_cst.
//
// Threads: any; guards may be nested. After a fork the child goes on if its
// parent had one thread.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// Base of what is freed by epochs.
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

    // Where it waits to be freed; what it holds is constant by then.
    mutable const CRetirable* m_next = nullptr;
    mutable std::uint64_t m_epoch = 0;
};

/// Objects that nobody sees any longer; freed with it.
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

/// Objects out of reach that wait for their last reader, oldest first: a reader
/// that stays long costs memory, and no look at what it holds up.
///
/// Threads: one at a time.
class CRetired
{
public:
    CRetired() = default;

    /// Frees all of them: no reader is left.
    ~CRetired();

    CRetired(const CRetired&) = delete;
    CRetired& operator=(const CRetired&) = delete;

    /// Takes an object that no pointer leads to any longer.
    ///
    /// \param bytes  Roughly what the object holds.
    void Add(const CRetirable* object, std::size_t bytes);

    /// Hands out, in batches, what no reader can see.
    [[nodiscard]] CGarbage Collect();

private:
    const CRetirable* m_oldest = nullptr;
    const CRetirable* m_newest = nullptr; // valid while there is an oldest
    std::size_t m_count = 0;              // since the last batch
    std::size_t m_bytes = 0;              // likewise
};

/// What one thread has here. Threads that ended leave theirs to others.
// The padding keeps what the thread alone uses away from what others look at.
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

// Every read of the domain looks here. The plain form of thread-local data, in
// the part of it that is there from the start, spares two calls.
extern __thread CEpochSlot* t_slot __attribute__((tls_model("initial-exec")));

/// Gives the calling thread its slot.
CEpochSlot& TakeSlot();

inline CEpochSlot& Slot()
{
    return t_slot != nullptr ? *t_slot : TakeSlot();
}

} // namespace EpochDetail

/// Keeps alive whatever guarded pointers show, as long as it exists.
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

/// Takes an object that no pointer leads to any longer, to be freed later by
/// this thread.
///
/// \param bytes  Roughly what the object holds.
inline void Retire(const CRetirable* object, std::size_t bytes)
{
    EpochDetail::Slot().retired.Add(object, bytes);
}

/// Frees, in batches, what this thread retired and nobody sees any longer. To
/// be called outside of guards and locks.
inline void FreeRetired()
{
    const CGarbage garbage = EpochDetail::Slot().retired.Collect();
}

} // namespace KzaCore
