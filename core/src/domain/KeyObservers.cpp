// SPDX-License-Identifier: Apache-2.0

#include "domain/KeyObservers.h"

#include "crash/CrashVersion.h"
#include "kza_core/Dom.h"
#include "log/DiskLog.h"
#include "log/TraceSet.h"

#include <mutex>

namespace KzaCore
{

namespace
{

struct FollowedKey
{
    std::string_view key;
    void (*refresh)(const CDom& root);
};

// Whoever comes last has read the last change; without the turns, an older
// state could be put to use after a newer one.
std::mutex s_oneAtATime;

constexpr FollowedKey kFollowedKeys[] = {
    {DomKey::kTrace, RefreshTrace},
    {DomKey::kTraceMore, RefreshTrace},
    {DomKey::kName, ConfigureDiskLog},
    {DomKey::kPathWork, ConfigureDiskLog},
    {DomKey::kLogMaxSize, ConfigureDiskLog},
    {DomKey::kLogKeep, ConfigureDiskLog},
    {DomKey::kLogConsole, ConfigureDiskLog},
    {DomKey::kVersion, RefreshCrashVersion},
};

} // namespace

void NotifyKeyObservers(const CDom& root, std::string_view key)
{
    for (const FollowedKey& followed : kFollowedKeys)
    {
        if (followed.key != key)
            continue;
        const std::lock_guard<std::mutex> lock(s_oneAtATime);
        followed.refresh(root);
    }
}

void NotifyAllKeyObservers(const CDom& root)
{
    const std::lock_guard<std::mutex> lock(s_oneAtATime);
    RefreshTrace(root);
    ConfigureDiskLog(root);
    RefreshCrashVersion(root);
}

} // namespace KzaCore
