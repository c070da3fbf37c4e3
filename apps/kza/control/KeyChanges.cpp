// SPDX-License-Identifier: Apache-2.0

#include "control/KeyChanges.h"

#include <utility>

CKeyChanges::CKeyChanges(const KzaCore::CDom& root,
                         const std::string& key,
                         std::function<void()> waiting)
    : m_waitingCB(std::move(waiting)),
      m_follower(
          root, key, [this](const KzaCore::DomValue& value) { Put(value); })
{
}

std::deque<KzaCore::DomValue> CKeyChanges::Take()
{
    const KzaCore::CLock lock(m_mutex);
    return std::exchange(m_waiting, {});
}

void CKeyChanges::Put(const KzaCore::DomValue& value)
{
    bool first = false;
    {
        const KzaCore::CLock lock(m_mutex);
        first = m_waiting.empty();
        if (m_waiting.size() < kMaxWaiting)
            m_waiting.push_back(value);
        else
            m_waiting.back() = value;
    }
    if (first)
        m_waitingCB();
}
