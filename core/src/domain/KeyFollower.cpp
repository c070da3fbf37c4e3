// SPDX-License-Identifier: Apache-2.0

#include "kza_core/KeyFollower.h"

#include "base/Mutex.h"
#include "domain/KeyFollowers.h"

#include <atomic>
#include <utility>

namespace KzaCore
{

namespace
{

// Held while a follower is called, so that no follower is destroyed meanwhile,
// and no call shows an older value than the call before.
CMutex s_mutex;

// The list of followers. Changed under s_mutex; compared with null without it,
// so that the writers of a process without followers take no lock.
std::atomic<CKeyFollower*> s_first{nullptr};

} // namespace

CKeyFollower::CKeyFollower(const CDom& root, std::string key, ValueCB value)
    : m_key(std::move(key)), m_value(std::move(value))
{
    const CLock lock(s_mutex);
    m_next = s_first;
    // The follower is in the list before its first call reads the value, so no
    // change after that reading is missed.
    s_first = this;
    m_value(root.Value(m_key));
}

CKeyFollower::~CKeyFollower()
{
    const CLock lock(s_mutex);
    if (s_first == this)
    {
        s_first = m_next;
        return;
    }
    CKeyFollower* before = s_first;
    while (before->m_next != this)
        before = before->m_next;
    before->m_next = m_next;
}

void NotifyKeyFollowers(const CDom& root, std::string_view key)
{
    if (s_first == nullptr)
        return;
    const CLock lock(s_mutex);
    for (auto* follower = s_first.load(); follower; follower = follower->m_next)
        if (follower->m_key == key)
            follower->m_value(root.Value(follower->m_key));
}

} // namespace KzaCore
