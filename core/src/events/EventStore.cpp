// SPDX-License-Identifier: Apache-2.0

#include "events/EventStore.h"

#include "base/Bytes.h"
#include "base/Mutex.h"
#include "events/EventDatabase.h"
#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"

#include <wx/log.h>

#include <sys/stat.h>

#include <cerrno>

namespace KzaCore
{

namespace
{

constexpr char kFileName[] = "/events.db";

// The one connection of the process.
struct CStore
{
    CMutex mutex;
    CEventDatabase database KZA_GUARDED_BY(mutex);
};

// Never destroyed: while one thread ends the process by exit(), another may
// still store an event.
CStore& Store()
{
    static CStore* const store = new CStore;
    return *store;
}

void LogEvent(const CAgentEvent& event, const std::string& reason)
{
    wxLogError("Agent event not stored in its database (%s): number %lu, "
               "severity %lu, time %lld, text '%s'",
               TextOfBytes(reason), static_cast<unsigned long>(event.m_number),
               static_cast<unsigned long>(event.m_severity),
               static_cast<long long>(event.m_timeMs),
               TextOfBytes(event.m_text));
}

// Renames the database, so that a new one can be made; false when that fails.
bool SetAside(CEventDatabase& database, const std::string& path)
{
    const std::string reason = database.Reason();
    std::string aside;
    if (!database.SetAside(aside))
    {
        wxLogSysError("Unable to set the event database '%s' aside",
                      TextOfBytes(path));
        return false;
    }
    if (!aside.empty())
        wxLogError("Event database '%s' cannot be used (%s), set aside as '%s'",
                   TextOfBytes(path), TextOfBytes(reason), TextOfBytes(aside));
    return true;
}

} // namespace

std::int64_t WriteEvent(const CDom& dom, const CAgentEvent& event)
{
    const std::string work = dom.Get(DomKey::kPathWork);
    if (work.empty())
    {
        LogEvent(event, "there is no working directory");
        return 0;
    }
    const std::string path = work + kFileName;
    CStore& store = Store();
    const CLock lock(store.mutex);
    CEventDatabase& database = store.database;
    std::int64_t id = database.Open(path) ? database.Insert(event) : 0;
    if (id != 0)
        return id;
    LogEvent(event, database.Reason());
    if (database.IsFileUnusable() && SetAside(database, path) &&
        database.Open(path))
        id = database.Insert(event);
    return id;
}

bool ReadEvents(const CDom& dom,
                std::int64_t afterId,
                std::int64_t limit,
                std::vector<CStoredEvent>& events,
                std::string& error)
{
    events.clear();
    const std::string work = dom.Get(DomKey::kPathWork);
    const std::string path = work + kFileName;
    struct stat status = {};
    if (work.empty() || (lstat(path.c_str(), &status) != 0 && errno == ENOENT))
        return true;
    CStore& store = Store();
    const CLock lock(store.mutex);
    CEventDatabase& database = store.database;
    if (database.Open(path) && database.Select(afterId, limit, events))
        return true;
    error = database.Reason();
    return false;
}

void CloseEventStore()
{
    CStore& store = Store();
    const CLock lock(store.mutex);
    store.database.Close();
}

std::int64_t CDom::AgentEventWrite(CAgentEvent& event)
{
    return WriteEvent(*this, event);
}

} // namespace KzaCore
