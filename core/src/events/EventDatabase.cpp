// SPDX-License-Identifier: Apache-2.0

#include "events/EventDatabase.h"

#include "base/Descriptor.h"
#include "events/DefensiveDatabase.h"
#include "events/EventRow.h"
#include "kza_core/AgentEvent.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace KzaCore
{

namespace
{

// Longer than any writer of the agent holds the lock. A process that holds it
// for longer is stuck or stopped in a debugger.
constexpr std::chrono::milliseconds kLockWait{5000};
constexpr std::chrono::milliseconds kRetry{10};

constexpr char kSetUp[] =
    "pragma journal_mode=wal;"
    "pragma synchronous=full;"
    "create table if not exists agent_event("
    "id integer primary key, number, severity, time, time_ms, text);";
constexpr char kInsert[] =
    "insert into agent_event(number, severity, time, time_ms, text) "
    "values(?1, ?2, ?3, ?4, ?5)";

// The columns are in the order that EventOfRow() expects.
std::string Selection()
{
    return std::string("select ") + kEventColumns +
           " from agent_event where id > ?1 order by id limit ?2";
}

// Makes the file for its owner alone; SQLite gives the files beside it the
// same mode.
void MakeFile(const std::string& path)
{
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    const CDescriptor made(open(path.c_str(), kFlags, 0600));
}

} // namespace

// --- The connection --------------------------------------------------------

bool CEventDatabase::Fail(int code)
{
    m_code = code;
    m_reason = m_db == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(m_db);
    return false;
}

void CEventDatabase::Close()
{
    // In a forked child the connection belongs to the parent: closing it would
    // drop the parent's locks and write its log back.
    if (m_owner == getpid())
    {
        sqlite3_finalize(m_insert);
        sqlite3_finalize(m_select);
        sqlite3_close(m_db);
    }
    m_insert = nullptr;
    m_select = nullptr;
    m_db = nullptr;
}

bool CEventDatabase::IsOurFile() const
{
    struct stat status = {};
    return lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

// True when the database is open at the path and its file has not been removed
// or replaced, which SQLite would not notice: events would be lost.
bool CEventDatabase::IsOpenAt(const std::string& path) const
{
    return m_db != nullptr && m_owner == getpid() && m_path == path &&
           IsOurFile();
}

bool CEventDatabase::Open(const std::string& path)
{
    if (IsOpenAt(path))
        return true;
    m_path = path;
    const auto deadline = std::chrono::steady_clock::now() + kLockWait;
    for (;;)
    {
        Close();
        const int code = Connect();
        if (code == SQLITE_OK)
            return true;
        // SQLite fails at once, without waiting, when two processes begin a
        // database at the same instant.
        const bool isLocked = (code & 0xFF) == SQLITE_BUSY;
        if (!isLocked || std::chrono::steady_clock::now() >= deadline)
        {
            Fail(code);
            Close();
            return false;
        }
        std::this_thread::sleep_for(kRetry);
    }
}

int CEventDatabase::Connect()
{
    m_owner = getpid();
    MakeFile(m_path);
    struct stat status = {};
    lstat(m_path.c_str(), &status);
    m_device = status.st_dev;
    m_inode = status.st_ino;

    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                           SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX;
    int code = sqlite3_open_v2(m_path.c_str(), &m_db, kFlags, nullptr);
    if (code == SQLITE_OK)
        code = MakeDefensive(m_db);
    if (code != SQLITE_OK)
        return code;
    sqlite3_busy_timeout(m_db, static_cast<int>(kLockWait.count()));
    if (sqlite3_exec(m_db, kSetUp, nullptr, nullptr, nullptr) != SQLITE_OK ||
        !Prepare(kInsert, m_insert) || !Prepare(Selection().c_str(), m_select))
        return sqlite3_extended_errcode(m_db);
    return SQLITE_OK;
}

bool CEventDatabase::Prepare(const char* sql, sqlite3_stmt*& statement)
{
    return sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT,
                              &statement, nullptr) == SQLITE_OK;
}

// --- Failures --------------------------------------------------------------

bool CEventDatabase::IsFileUnusable() const
{
    switch (m_code & 0xFF)
    {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_ERROR: // a table of that name with other columns
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return true;
    case SQLITE_CANTOPEN:
    {
        struct stat status = {};
        return lstat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    }
    default:
        return false;
    }
}

bool CEventDatabase::SetAside(std::string& aside)
{
    Close();
    aside.clear();
    if (!IsOurFile())
        return true;

    char stamp[32];
    const time_t now = time(nullptr);
    tm utc = {};
    strftime(stamp, sizeof stamp, ".%Y%m%dT%H%M%SZ", gmtime_r(&now, &utc));
    std::string name = m_path + stamp;
    struct stat status = {};
    for (int i = 1; lstat(name.c_str(), &status) == 0; ++i)
        name = m_path + stamp + "-" + std::to_string(i);
    if (rename(m_path.c_str(), name.c_str()) != 0)
        return false;
    // When the moved file is opened later, SQLite finds these by their names.
    for (const char* suffix : {"-wal", "-shm"})
        rename((m_path + suffix).c_str(), (name + suffix).c_str());
    aside = name;
    return true;
}

// --- Use -------------------------------------------------------------------

std::int64_t CEventDatabase::Insert(const CAgentEvent& event)
{
    const auto bind = [&](int index, const void* attribute, std::int64_t value)
    {
        if (!event.IsAttributeNull(attribute))
            sqlite3_bind_int64(m_insert, index, value);
    };
    bind(1, &event.m_number, event.m_number);
    bind(2, &event.m_severity, event.m_severity);
    bind(3, &event.m_time, event.m_time);
    bind(4, &event.m_timeMs, event.m_timeMs);
    if (!event.IsAttributeNull(&event.m_text))
        sqlite3_bind_text64(m_insert, 5, event.m_text.data(),
                            event.m_text.size(), SQLITE_STATIC, SQLITE_UTF8);

    const bool isDone = sqlite3_step(m_insert) == SQLITE_DONE;
    if (!isDone)
        Fail(sqlite3_extended_errcode(m_db));
    sqlite3_reset(m_insert);
    sqlite3_clear_bindings(m_insert);
    return isDone ? sqlite3_last_insert_rowid(m_db) : 0;
}

bool CEventDatabase::Select(std::int64_t afterId,
                            std::int64_t limit,
                            std::vector<CStoredEvent>& events)
{
    sqlite3_bind_int64(m_select, 1, afterId);
    sqlite3_bind_int64(m_select, 2, limit);
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(m_select)) == SQLITE_ROW)
        events.push_back(EventOfRow(m_select));
    if (code != SQLITE_DONE)
        Fail(sqlite3_extended_errcode(m_db));
    sqlite3_reset(m_select);
    return code == SQLITE_DONE;
}

} // namespace KzaCore
