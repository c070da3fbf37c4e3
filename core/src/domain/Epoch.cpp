// SPDX-License-Identifier: Apache-2.0
//
// Why no object is freed while a reader may use it.
//
// A reader
//   R1  loads the epoch, and stores it in its thread's slot,
//   R2  loads guarded pointers, one after the other, and reaches an object,
//   R3  uses the object,
//   R4  stores 0 in its slot.
// A writer
//   W1  replaces a guarded pointer; no pointer leads to the object any longer,
//   W2  loads the epoch and notes it at the object,
//   W3  adds one to the epoch,
//   W4  loads every slot and finds the oldest reader,
//   W5  frees the object if its epoch is older than the oldest reader's.
//
// R1, R2 and W1 to W4 are sequentially consistent: there is one order of all
// of them that every thread agrees on.
//
//   1. A reader that reached the object did so before W1: had its load come
//      after W1, it would have got the new pointer. So R1 came before W1 too.
//   2. Hence R1 came before W2. As the epoch only grows, the slot's epoch is
//      not greater than the object's.
//   3. R1 came before W4, so W4 sees the slot's epoch, or the 0 of R4.
//   4. If it sees the epoch, the oldest reader is not younger than the object,
//      and W5 leaves the object alone.
//   5. If it sees 0, R4 is a release and W4 an acquire: all of R3 happened
//      before W5.
//
// W3 makes progress certain. A reader that begins after W3 has a greater epoch
// than the object and does not keep it from being freed. Without W3, new
// readers of the old epoch could keep an object for ever.
//
// Where several guarded pointers lead one to the next and so to an object, W1
// is the store that breaks the chain. An inner guard of a thread stores
// nothing, since the outer guard's epoch is older.
//
// A slot that W4 does not find in the list was added after W4 read its head, so
// its R1 comes after W1, and by step 1 its reader does not reach the object.

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

// A larger batch reads the slots less often and keeps more memory.
constexpr std::size_t kBatchCount = 64;
constexpr std::size_t kBatchBytes = 256 * 1024;

// All slots. A slot is never removed. A new thread takes over the slot of an
// ended one, so there are never more slots than threads ran at the same time.
std::atomic<CEpochSlot*> s_slots{nullptr};

void GiveSlotBackCB(void* slot)
{
    EpochDetail::t_slot = nullptr;
    static_cast<CEpochSlot*>(slot)->used.store(false,
                                               std::memory_order_release);
}

// POSIX thread-specific data, whose destructors run after those of thread_local
// objects: such an object may read the domain in its destructor.
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
    while (!s_slots.compare_exchange_weak(slot->next, slot))
    {
    }
    return slot;
}

// Step W4: the epoch of the reader that began first; the highest number when
// there is no reader.
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
    // Step W2.
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

    // Steps W3 to W5. The epochs along the list never fall, so all objects
    // behind the first one that must stay must stay, too.
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
