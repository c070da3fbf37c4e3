// SPDX-License-Identifier: Apache-2.0

#include "domain/KeyObservers.h"

#include "base/Mutex.h"

#include <algorithm>
#include <atomic>

namespace KzaCore
{

namespace
{

// Initialised at compile time, because static objects of other sources may
// register before the constructors of this source run. The lock is held during
// every call of a refresh function: otherwise a service could apply an older
// value of a key after a newer one.
CMutex s_mutex;
const CDom* s_root KZA_GUARDED_BY(s_mutex) = nullptr;

// The newest observer, first in the list. The list grows under s_mutex and is
// read without it, so that a write to a key without observers takes no lock.
std::atomic<const CKeyObserver*> s_newest{nullptr};

const CKeyObserver* Newest()
{
    return s_newest.load(std::memory_order_acquire);
}

} // namespace

void CKeyObserver::Register() noexcept
{
    const CLock lock(s_mutex);
    m_next = Newest();
    s_newest.store(this, std::memory_order_release);
    if (s_root != nullptr)
        Refresh(s_root);
}

bool CKeyObserver::Follows(std::string_view key) const
{
    return std::find(m_keys, m_keys + m_count, key) != m_keys + m_count;
}

bool ClaimRoot(const CDom& dom)
{
    const CLock lock(s_mutex);
    if (s_root == nullptr)
        s_root = &dom;
    return s_root == &dom;
}

void AbandonRoot(const CDom& dom)
{
    const CLock lock(s_mutex);
    if (s_root != &dom)
        return;
    s_root = nullptr;
    for (auto* observer = Newest(); observer; observer = observer->Next())
        observer->Refresh(nullptr);
}

void NotifyKeyObservers(const CDom& root, std::string_view key)
{
    for (auto* observer = Newest(); observer; observer = observer->Next())
    {
        if (!observer->Follows(key))
            continue;
        const CLock lock(s_mutex);
        observer->Refresh(&root);
    }
}

} // namespace KzaCore
