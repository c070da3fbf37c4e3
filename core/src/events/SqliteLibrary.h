// SPDX-License-Identifier: Apache-2.0
//
// The SQLite library, loaded when it is first wanted.
//
// Most starts of an agent store no event and set nothing of SQLite; to find
// the library's 1,600 symbols would be a fifteenth of the way to the
// application's first line. So nothing of ours is linked with it: its calls go
// through a table. A Lua module that is linked with SQLite shares the same
// library.
//
// Threads: any.

#pragma once

#include <sqlite3.h>

#include <string>

namespace KzaCore
{

/// The calls that are used here, named as in the library without "sqlite3_".
/// See https://sqlite.org/c3ref.
struct SSqliteCalls
{
#define KZA_SQLITE_CALLS(CALL)                                                 \
    CALL(bind_int64)                                                           \
    CALL(bind_text64)                                                          \
    CALL(busy_timeout)                                                         \
    CALL(clear_bindings)                                                       \
    CALL(close)                                                                \
    CALL(column_bytes)                                                         \
    CALL(column_int64)                                                         \
    CALL(column_text)                                                          \
    CALL(config)                                                               \
    CALL(errmsg)                                                               \
    CALL(errstr)                                                               \
    CALL(exec)                                                                 \
    CALL(extended_errcode)                                                     \
    CALL(finalize)                                                             \
    CALL(hard_heap_limit64)                                                    \
    CALL(initialize)                                                           \
    CALL(last_insert_rowid)                                                    \
    CALL(open_v2)                                                              \
    CALL(prepare_v3)                                                           \
    CALL(reset)                                                                \
    CALL(shutdown)                                                             \
    CALL(soft_heap_limit64)                                                    \
    CALL(step)

// NOLINTNEXTLINE(bugprone-macro-parentheses): it declares the name
#define KZA_SQLITE_MEMBER(name) decltype(&::sqlite3_##name) name = nullptr;
    KZA_SQLITE_CALLS(KZA_SQLITE_MEMBER)
#undef KZA_SQLITE_MEMBER
};

/// Loads the library unless it is there.
///
/// \param reason  Out: why it cannot be loaded.
[[nodiscard]] bool LoadSqlite(std::string& reason);

/// Whether LoadSqlite() has answered true.
[[nodiscard]] bool IsSqliteLoaded();

/// The calls, once LoadSqlite() has answered true.
[[nodiscard]] const SSqliteCalls& Sqlite();

} // namespace KzaCore
