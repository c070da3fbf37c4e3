// SPDX-License-Identifier: Apache-2.0

#include "domain/Epoch.h"

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

CGarbage::~CGarbage()
{
    while (m_first != nullptr)
    {
        const CRetirable* const object = m_first;
        m_first = m_first->m_next;
        delete object;
    }
}

CRetired::~CRetired()
{
    const CGarbage rest(m_oldest);
}

void CRetired::Add(const CRetirable* object, std::size_t bytes)
{
    object->m_epoch = EpochDetail::g_epoch.load(std::memory_order_seq_cst);
    if (m_oldest == nullptr)
        m_oldest = object;
    else
        m_newest->m_next = object;
    m_newest = object;
    m_bytes += bytes;
    ++m_count;
}

CGarbage CRetired::Collect()
{
    if (m_count < kBatchCount && m_bytes < kBatchBytes)
        return CGarbage();
    m_count = 0;
    m_bytes = 0;

    // A reader that tells the new epoch began after everything here had gone
    // out of reach.
    EpochDetail::g_epoch.fetch_add(1, std::memory_order_seq_cst);
    const std::uint64_t oldestReader = OldestReader();
    const CRetirable* const first = m_oldest;
    const CRetirable* last = nullptr;
    while (m_oldest != nullptr && m_oldest->m_epoch < oldestReader)
    {
        last = m_oldest;
        m_oldest = m_oldest->m_next;
    }
    if (last == nullptr)
        return CGarbage();
    last->m_next = nullptr;
    return CGarbage(first);
}

} // namespace KzaCore
