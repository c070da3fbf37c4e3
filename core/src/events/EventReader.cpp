// SPDX-License-Identifier: Apache-2.0

#include "events/EventReader.h"

#include "base/Error.h"
#include "events/DefensiveDatabase.h"
#include "events/EventRow.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include <unistd.h>

namespace KzaCore
{

namespace
{

using CConnection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
using CStatement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

constexpr int kLockWaitMs = 5000;

// The path as the file part of a URI.
std::string Escaped(const std::string& path)
{
    std::string text;
    for (const char byte : path)
    {
        const bool plain = (byte >= '0' && byte <= '9') ||
                           (byte >= 'A' && byte <= 'Z') ||
                           (byte >= 'a' && byte <= 'z') || byte == '/' ||
                           byte == '.' || byte == '_' || byte == '-';
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += plain ? std::string(1, byte) : std::string(code);
    }
    return text;
}

// To read a database with a write-ahead log, SQLite makes files beside it,
// unless it is told that the database does not change. A database without such
// a log has no writer.
std::string UriOf(const std::string& path)
{
    const bool inUse = access((path + "-wal").c_str(), F_OK) == 0;
    return "file:" + Escaped(path) + (inUse ? "?mode=ro" : "?immutable=1");
}

int Select(sqlite3* db,
           const CEventRange& range,
           std::vector<CStoredEvent>& events)
{
    const std::string sql = std::string("select ") + kEventColumns +
                            " from agent_event where id > ?1 "
                            "order by id desc limit ?2";
    sqlite3_stmt* raw = nullptr;
    const int code = sqlite3_prepare_v2(db, sql.c_str(), -1, &raw, nullptr);
    const CStatement statement(raw, sqlite3_finalize);
    if (code != SQLITE_OK)
        return code;
    sqlite3_bind_int64(raw, 1, range.afterId);
    sqlite3_bind_int64(raw, 2, range.last);
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(raw)) == SQLITE_ROW)
        events.push_back(EventOfRow(raw));
    std::reverse(events.begin(), events.end());
    return step == SQLITE_DONE ? SQLITE_OK : step;
}

} // namespace

bool ReadEventsOf(const std::string& path,
                  const CEventRange& range,
                  std::vector<CStoredEvent>& events,
                  std::string& error)
{
    events.clear();
    if (access(path.c_str(), R_OK) != 0)
        return FailBySystem(error, path);
    constexpr int kFlags =
        SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    sqlite3* raw = nullptr;
    int code = sqlite3_open_v2(UriOf(path).c_str(), &raw, kFlags, nullptr);
    const CConnection db(raw, sqlite3_close);
    if (code == SQLITE_OK)
        code = MakeDefensive(raw);
    if (code == SQLITE_OK)
    {
        sqlite3_busy_timeout(raw, kLockWaitMs);
        code = Select(raw, range, events);
    }
    if (code == SQLITE_OK)
        return true;
    events.clear();
    return Fail(error, path + ": " +
                           (raw ? sqlite3_errmsg(raw) : sqlite3_errstr(code)));
}

} // namespace KzaCore
