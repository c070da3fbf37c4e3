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

// Held while a follower is called: no follower goes away meanwhile, and what a
// call shows is never older than what the call before it showed.
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
    // In the list before it reads: a change from here on is told.
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
