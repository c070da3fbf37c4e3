// SPDX-License-Identifier: Apache-2.0

#include "Epoch.h"

#include <limits>
#include <mutex>

#include <pthread.h>

namespace KzaCore
{

namespace EpochDetail
{

std::atomic<std::uint64_t> g_epoch{1};
__thread CEpochSlot* t_slot = nullptr;

} // namespace EpochDetail

namespace
{

// Larger batches free with fewer looks at the slots and hold more memory.
constexpr std::size_t kBatchCount = 64;
constexpr std::size_t kBatchBytes = 256 * 1024;

// All slots that ever were. They are few, as they are used again, and live as
// long as the process.
std::atomic<CEpochSlot*> s_slots{nullptr};

void GiveSlotBackCB(void* slot)
{
    EpochDetail::t_slot = nullptr;
    static_cast<CEpochSlot*>(slot)->used.store(false,
                                               std::memory_order_release);
}

// The system's own thread-specific data and not a thread_local object with a
// destructor: the destructors of other thread_local objects may still read,
// and these come after them.
pthread_key_t SlotKey()
{
    static const pthread_key_t key = []
    {
        pthread_key_t made{};
        pthread_key_create(&made, GiveSlotBackCB);
        return made;
    }();
    return key;
}

CEpochSlot* FindUnusedSlot()
{
    for (CEpochSlot* slot = s_slots.load(std::memory_order_acquire);
         slot != nullptr; slot = slot->next)
    {
        bool used = false;
        if (slot->used.compare_exchange_strong(used, true))
            return slot;
    }
    return nullptr;
}

CEpochSlot* AddSlot()
{
    auto* const slot = new CEpochSlot;
    slot->next = s_slots.load(std::memory_order_relaxed);
    // Sequentially consistent, so that a writer that misses the new slot is
    // one whose replaced pointers the reader cannot load.
    while (!s_slots.compare_exchange_weak(slot->next, slot))
    {
    }
    return slot;
}

// The epoch of the reader that began first; the highest number without one.
std::uint64_t OldestReader()
{
    std::uint64_t oldest = std::numeric_limits<std::uint64_t>::max();
    for (const CEpochSlot* slot = s_slots.load(std::memory_order_seq_cst);
         slot != nullptr; slot = slot->next)
    {
        const std::uint64_t epoch = slot->epoch.load(std::memory_order_seq_cst);
        if (epoch != 0 && epoch < oldest)
            oldest = epoch;
    }
    return oldest;
}

} // namespace

CEpochSlot& EpochDetail::TakeSlot()
{
    CEpochSlot* slot = FindUnusedSlot();
    if (slot == nullptr)
        slot = AddSlot();
    pthread_setspecific(SlotKey(), slot);
    t_slot = slot;
    return *slot;
}

CRetired::~CRetired()
{
    while (m_first != nullptr)
    {
        const CRetirable* const object = m_first;
        m_first = m_first->m_next;
        delete object;
    }
}

void CRetired::Add(const CRetirable* object, std::size_t bytes)
{
    if (object == nullptr)
        return;
    object->m_epoch = EpochDetail::g_epoch.load(std::memory_order_seq_cst);
    (m_last == nullptr ? m_first : m_last->m_next) = object;
    m_last = object;
    m_bytes += bytes;
    if (++m_count >= kBatchCount || m_bytes >= kBatchBytes)
        Collect();
}

void CRetired::Collect()
{
    m_count = 0;
    m_bytes = 0;

    // A reader that tells the new epoch began after everything here had gone
    // out of reach.
    EpochDetail::g_epoch.fetch_add(1, std::memory_order_seq_cst);
    const std::uint64_t oldest = OldestReader();
    while (m_first != nullptr && m_first->m_epoch < oldest)
    {
        const CRetirable* const object = m_first;
        m_first = m_first->m_next;
        delete object;
    }
    if (m_first == nullptr)
        m_last = nullptr;
}

} // namespace KzaCore
