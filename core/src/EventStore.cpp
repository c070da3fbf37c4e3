// SPDX-License-Identifier: Apache-2.0

#include "EventStore.h"

#include "Bytes.h"
#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"

#include <wx/log.h>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <system_error>

namespace KzaCore
{

namespace
{

constexpr char kFileName[] = "/events.db";

// Longer than any writer of ours holds the lock; who holds it for longer is
// stuck or has stopped in a debugger.
constexpr int kBusyTimeoutMs = 5000;

constexpr char kSetUp[] =
    "pragma journal_mode=wal;"
    "pragma synchronous=full;"
    "create table if not exists agent_event("
    "id integer primary key, number, severity, time, time_ms, text);";
constexpr char kInsert[] =
    "insert into agent_event(number, severity, time, time_ms, text) "
    "values(?1, ?2, ?3, ?4, ?5)";
constexpr char kSelect[] =
    "select id, number, severity, time, time_ms, text from agent_event "
    "where id > ?1 order by id limit ?2";

/// What to do about a failure.
enum class ERemedy
{
    None,     // nothing helps now
    Reopen,   // the file was replaced behind our back
    SetAside, // the file itself is in the way
};

// The one connection of the process.
class CEventStore
{
public:
    std::int64_t Write(const std::string& work, const CAgentEvent& event);
    bool Read(const std::string& work,
              std::int64_t afterId,
              std::int64_t limit,
              std::vector<SStoredEvent>& events,
              std::string& error);
    void Close();

private:
    bool Open(const std::string& path);
    bool Prepare(const char* sql, sqlite3_stmt*& statement);
    std::int64_t Insert(const CAgentEvent& event);
    void Note(int code, const std::string& reason);
    [[nodiscard]] ERemedy Remedy() const;
    bool SetAside();

    std::mutex m_mutex; // guards all below
    std::string m_path;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_select = nullptr;
    pid_t m_owner = 0; // the process that opened m_db

    // The last failure.
    int m_code = SQLITE_OK;
    std::string m_reason;
};

// Never destroyed: a process that ends by exit() on one thread may still have
// another in here, and a forked child must leave the connection alone.
CEventStore& Store()
{
    static CEventStore* const store = new CEventStore;
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

} // namespace

// --- The connection --------------------------------------------------------

namespace
{

void CEventStore::Note(int code, const std::string& reason)
{
    m_code = code;
    m_reason = reason;
}

void CEventStore::Close()
{
    // In a forked child these belong to the parent: closing them would drop
    // its locks and check its log point in.
    if (m_db != nullptr && m_owner == getpid())
    {
        sqlite3_finalize(m_insert);
        sqlite3_finalize(m_select);
        sqlite3_close(m_db);
    }
    m_insert = nullptr;
    m_select = nullptr;
    m_db = nullptr;
}

bool CEventStore::Prepare(const char* sql, sqlite3_stmt*& statement)
{
    return sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT,
                              &statement, nullptr) == SQLITE_OK;
}

// Makes the connection to the database at the path the present one.
bool CEventStore::Open(const std::string& path)
{
    if (m_db != nullptr && m_owner == getpid() && m_path == path)
        return true;
    Close();
    m_path = path;
    m_owner = getpid();

    // SQLite would make the file readable for everyone.
    const int fd =
        open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0)
        close(fd);

    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                           SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX;
    int code = sqlite3_open_v2(path.c_str(), &m_db, kFlags, nullptr);
    if (code == SQLITE_OK)
    {
        sqlite3_busy_timeout(m_db, kBusyTimeoutMs);
        code = sqlite3_exec(m_db, kSetUp, nullptr, nullptr, nullptr);
    }
    if (code == SQLITE_OK && Prepare(kInsert, m_insert) &&
        Prepare(kSelect, m_select))
        return true;
    Note(sqlite3_extended_errcode(m_db), sqlite3_errmsg(m_db));
    Close();
    return false;
}

// --- Failures --------------------------------------------------------------

ERemedy CEventStore::Remedy() const
{
    if (m_code == SQLITE_READONLY_DBMOVED)
        return ERemedy::Reopen;
    switch (m_code & 0xFF)
    {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_ERROR: // a table of that name with other columns
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return ERemedy::SetAside;
    case SQLITE_CANTOPEN:
    {
        struct stat status = {};
        const bool isOther =
            lstat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
        return isOther ? ERemedy::SetAside : ERemedy::None;
    }
    default:
        return ERemedy::None;
    }
}

// Moves the database and what belongs to it to a name that is free. SQLite
// notices in other processes that theirs has moved.
bool CEventStore::SetAside()
{
    Close();
    char stamp[32];
    const time_t now = time(nullptr);
    tm utc = {};
    strftime(stamp, sizeof stamp, ".%Y%m%dT%H%M%SZ", gmtime_r(&now, &utc));
    std::string aside = m_path + stamp;
    struct stat status = {};
    for (int i = 1; lstat(aside.c_str(), &status) == 0; ++i)
        aside = m_path + stamp + "-" + std::to_string(i);

    if (rename(m_path.c_str(), aside.c_str()) != 0)
    {
        wxLogSysError("Unable to set the event database '%s' aside",
                      TextOfBytes(m_path));
        return false;
    }
    for (const char* suffix : {"-wal", "-shm"})
        rename((m_path + suffix).c_str(), (aside + suffix).c_str());
    wxLogError("Event database '%s' cannot be used (%s), set aside as '%s'",
               TextOfBytes(m_path), TextOfBytes(m_reason), TextOfBytes(aside));
    return true;
}

// --- Use -------------------------------------------------------------------

std::int64_t CEventStore::Insert(const CAgentEvent& event)
{
    sqlite3_stmt* const insert = m_insert;
    const auto bind = [&](int index, const void* attribute, std::int64_t value)
    {
        if (!event.IsAttributeNull(attribute))
            sqlite3_bind_int64(insert, index, value);
    };
    bind(1, &event.m_number, event.m_number);
    bind(2, &event.m_severity, event.m_severity);
    bind(3, &event.m_time, event.m_time);
    bind(4, &event.m_timeMs, event.m_timeMs);
    if (!event.IsAttributeNull(&event.m_text))
    {
        sqlite3_bind_text64(insert, 5, event.m_text.data(), event.m_text.size(),
                            SQLITE_STATIC, SQLITE_UTF8);
    }
    const int code = sqlite3_step(insert);
    if (code != SQLITE_DONE)
        Note(sqlite3_extended_errcode(m_db), sqlite3_errmsg(m_db));
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    return code == SQLITE_DONE ? sqlite3_last_insert_rowid(m_db) : 0;
}

std::int64_t CEventStore::Write(const std::string& work,
                                const CAgentEvent& event)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::string path = work + kFileName;
    std::int64_t id = Open(path) ? Insert(event) : 0;
    if (id == 0 && Remedy() == ERemedy::Reopen)
    {
        Close();
        id = Open(path) ? Insert(event) : 0;
    }
    if (id != 0)
        return id;
    LogEvent(event, m_reason);
    if (Remedy() == ERemedy::SetAside && SetAside())
        id = Open(path) ? Insert(event) : 0;
    return id;
}

bool CEventStore::Read(const std::string& work,
                       std::int64_t afterId,
                       std::int64_t limit,
                       std::vector<SStoredEvent>& events,
                       std::string& error)
{
    events.clear();
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::string path = work + kFileName;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 && errno == ENOENT)
        return true;
    if (!Open(path))
    {
        error = m_reason;
        return false;
    }
    sqlite3_bind_int64(m_select, 1, afterId);
    sqlite3_bind_int64(m_select, 2, limit);
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(m_select)) == SQLITE_ROW)
    {
        SStoredEvent event;
        event.id = sqlite3_column_int64(m_select, 0);
        event.number = sqlite3_column_int64(m_select, 1);
        event.severity = sqlite3_column_int64(m_select, 2);
        event.time = sqlite3_column_int64(m_select, 3);
        event.timeMs = sqlite3_column_int64(m_select, 4);
        const unsigned char* const text = sqlite3_column_text(m_select, 5);
        if (text != nullptr)
        {
            event.text.assign(
                reinterpret_cast<const char*>(text),
                static_cast<std::size_t>(sqlite3_column_bytes(m_select, 5)));
        }
        events.push_back(std::move(event));
    }
    if (code != SQLITE_DONE)
        error = sqlite3_errmsg(m_db);
    sqlite3_reset(m_select);
    return code == SQLITE_DONE;
}

} // namespace

std::int64_t WriteEvent(const CDom& dom, const CAgentEvent& event)
{
    return Store().Write(dom.Get(DomKey::kPathWork), event);
}

bool ReadEvents(const CDom& dom,
                std::int64_t afterId,
                std::int64_t limit,
                std::vector<SStoredEvent>& events,
                std::string& error)
{
    return Store().Read(dom.Get(DomKey::kPathWork), afterId, limit, events,
                        error);
}

void CloseEventStore()
{
    Store().Close();
}

std::int64_t CDom::AgentEventWrite(CAgentEvent& event)
{
    return WriteEvent(*this, event);
}

} // namespace KzaCore
