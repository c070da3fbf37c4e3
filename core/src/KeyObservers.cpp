// SPDX-License-Identifier: Apache-2.0

#include "KeyObservers.h"

#include "DiskLog.h"
#include "TraceSet.h"
#include "kza_core/Dom.h"

#include <atomic>

namespace KzaCore
{

namespace
{

struct Service
{
    void (*const refresh)(const CDom& root);
    std::atomic<unsigned> changes{0}; // that it has yet to look at
};

Service s_trace{RefreshTrace};
Service s_diskLog{ConfigureDiskLog};

struct FollowedKey
{
    std::string_view key;
    Service& service;
};

const FollowedKey kFollowedKeys[] = {
    {DomKey::kTrace, s_trace},        {DomKey::kTraceMore, s_trace},
    {DomKey::kName, s_diskLog},       {DomKey::kPathWork, s_diskLog},
    {DomKey::kLogMaxSize, s_diskLog}, {DomKey::kLogKeep, s_diskLog},
    {DomKey::kLogConsole, s_diskLog},
};

// Whoever adds the first change calls the service for all that come meanwhile:
// without a lock, and never with an older state after a newer one.
void Refresh(Service& service, const CDom& root)
{
    if (service.changes.fetch_add(1) != 0)
        return;
    unsigned seen = 1;
    do
    {
        seen = service.changes.load();
        service.refresh(root);
    } while (!service.changes.compare_exchange_strong(seen, 0));
}

} // namespace

void NotifyKeyObservers(const CDom& root, std::string_view key)
{
    for (const FollowedKey& followed : kFollowedKeys)
        if (followed.key == key)
            Refresh(followed.service, root);
}

void NotifyAllKeyObservers(const CDom& root)
{
    Refresh(s_trace, root);
    Refresh(s_diskLog, root);
}

} // namespace KzaCore
