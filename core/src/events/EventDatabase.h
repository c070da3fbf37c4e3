// SPDX-License-Identifier: Apache-2.0
//
// A connection to a database of agent events.
//
// Threads: one object is used by one thread at a time. A forked child drops the
// connection that it inherits, without closing it, and opens its own.

#pragma once

#include "events/StoredEvent.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

struct sqlite3;
struct sqlite3_stmt;

namespace KzaCore
{

class CAgentEvent;

class CEventDatabase
{
public:
    CEventDatabase() = default;
    ~CEventDatabase() { Close(); }

    CEventDatabase(const CEventDatabase&) = delete;
    CEventDatabase& operator=(const CEventDatabase&) = delete;

    /// Opens the database at the path, unless it is open already, and makes the
    /// file when it is missing. Waits for a few seconds while another process
    /// locks it.
    ///
    /// \return false after a failure; Reason() says why.
    [[nodiscard]] bool Open(const std::string& path);

    void Close();

    /// Stores an event in the open database.
    ///
    /// \return its id, 0 after a failure.
    [[nodiscard]] std::int64_t Insert(const CAgentEvent& event);

    /// Reads events of the open database, as ReadEvents() does.
    [[nodiscard]] bool Select(std::int64_t afterId,
                              std::int64_t limit,
                              std::vector<CStoredEvent>& events);

    /// The reason why the last call failed.
    [[nodiscard]] const std::string& Reason() const { return m_reason; }

    /// True when the last call failed because of the file itself, so that a new
    /// file in its place would work.
    [[nodiscard]] bool IsFileUnusable() const;

    /// Closes the database and renames its file, and the files that SQLite
    /// keeps beside it, to a new name. Does nothing when another file has taken
    /// its place since the database was opened.
    ///
    /// \param aside  Out: the new path, empty when nothing was renamed.
    ///
    /// \return false with errno set when the file could not be renamed.
    [[nodiscard]] bool SetAside(std::string& aside);

private:
    bool IsOpenAt(const std::string& path) const;
    int Connect();
    bool Prepare(const char* sql, sqlite3_stmt*& statement);
    bool Fail(int code);
    [[nodiscard]] bool IsOurFile() const;

    std::string m_path;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_select = nullptr;
    pid_t m_owner = 0;  // the process that opened the database
    dev_t m_device = 0; // with m_inode, the identity of the opened file
    ino_t m_inode = 0;

    int m_code = 0; // SQLite's code of the last failure
    std::string m_reason;
};

} // namespace KzaCore
