// SPDX-License-Identifier: Apache-2.0
//
// A connection to a database of agent events.
//
// Threads: one object is used by one thread at a time. In a forked child the
// connection of the parent is forgotten, not closed, and opened anew.

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

    /// Makes the database at the path the open one; makes the file when it is
    /// missing. Waits for a few seconds when another process locks it.
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

    /// Why the last call failed.
    [[nodiscard]] const std::string& Reason() const { return m_reason; }

    /// True when the last call failed because of the file itself, so that
    /// another one in its place would do.
    [[nodiscard]] bool IsFileUnusable() const;

    /// Closes the database and moves it, with what belongs to it, to a name
    /// that is free. Does nothing when another file has taken its place since
    /// it was opened.
    ///
    /// \param aside  Out: the new path, empty when nothing was moved.
    ///
    /// \return false with errno set when it could not be moved.
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
    pid_t m_owner = 0;  // the process that opened it
    dev_t m_device = 0; // the file that was opened
    ino_t m_inode = 0;

    int m_code = 0; // SQLite's code of the last failure
    std::string m_reason;
};

} // namespace KzaCore
