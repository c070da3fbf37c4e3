// SPDX-License-Identifier: Apache-2.0

#include "kza_core/SqliteDatabase.h"

#include "kza_core/Dom.h"
#include "support/CollectedLog.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <wx/log.h>

#include <memory>
#include <vector>

using KzaCore::CDom;
using KzaCore::CSqliteDatabase;
using TestSupport::CCollectedLog;

namespace
{

class SqliteDatabase : public ::testing::Test
{
protected:
    void SetUp() override { sqlite3_shutdown(); }

    void TearDown() override
    {
        CSqliteDatabase::ShutdownSQLite();
        // The next test finds the library as it was.
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 1);
        sqlite3_config(SQLITE_CONFIG_URI, 0);
        m_dom->Release();
    }

    CDom* m_dom = CDom::New(nullptr, nullptr, nullptr, false);
    CCollectedLog m_log;
};

// A started library refuses to be configured.
bool SqliteRuns()
{
    return sqlite3_config(SQLITE_CONFIG_URI, 0) == SQLITE_MISUSE;
}

TEST_F(SqliteDatabase, RunsUntilItIsShutDown)
{
    CSqliteDatabase::InitializeSQLite(*m_dom);
    EXPECT_TRUE(m_log.m_texts.empty());
    EXPECT_TRUE(SqliteRuns());
    CSqliteDatabase::ShutdownSQLite();
    EXPECT_FALSE(SqliteRuns());
}

TEST_F(SqliteDatabase, FailedStartIsAnError)
{
    sqlite3_mem_methods usual = {};
    ASSERT_EQ(sqlite3_config(SQLITE_CONFIG_GETMALLOC, &usual), SQLITE_OK);
    sqlite3_mem_methods failing = usual;
    failing.xInit = [](void*) { return SQLITE_NOMEM; };
    sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);
    CSqliteDatabase::InitializeSQLite(*m_dom);
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_MALLOC, &usual);
    EXPECT_EQ(m_log.m_texts,
              std::vector<wxString>{"SQLite does not start: out of memory"});
}

TEST_F(SqliteDatabase, SettingsTakeEffect)
{
    m_dom->Set("sqlite.config.uri", 1LL);
    m_dom->Set("sqlite.config.memstatus", 0LL);
    CSqliteDatabase::InitializeSQLite(*m_dom);
    EXPECT_TRUE(m_log.m_texts.empty());

    // With URIs on, this names a database in memory, not a file.
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open("file:x?mode=memory", &db), SQLITE_OK);
    EXPECT_STREQ(sqlite3_db_filename(db, "main"), "");
    sqlite3_close(db);
    EXPECT_EQ(sqlite3_memory_used(), 0) << "no statistics are kept";
}

TEST_F(SqliteDatabase, HeapLimitsAreSetOnceTheLibraryRuns)
{
    m_dom->Set("sqlite.config.soft_heap_limit", 1000000LL);
    CSqliteDatabase::InitializeSQLite(*m_dom);
    EXPECT_TRUE(m_log.m_texts.empty());
    EXPECT_EQ(sqlite3_soft_heap_limit64(-1), 1000000);
    sqlite3_soft_heap_limit64(0);
}

TEST_F(SqliteDatabase, EveryNameOfTheTableIsKnown)
{
    for (const char* name :
         {"singlethread", "multithread", "serialized", "memstatus",
          "small_malloc", "uri", "covering_index_scan", "mmap_size", "pmasz",
          "stmtjrnl_spill", "sorterref_size", "memdb_maxsize",
          "soft_heap_limit", "hard_heap_limit"})
        m_dom->Set("sqlite.config." + std::string(name), 0LL);
    CSqliteDatabase::InitializeSQLite(*m_dom);
    for (const wxString& text : m_log.m_texts)
        EXPECT_FALSE(text.Contains("is not known")) << text;
    CSqliteDatabase::ShutdownSQLite();
    sqlite3_config(SQLITE_CONFIG_SERIALIZED);
}

TEST_F(SqliteDatabase, WhatIsUnknownOrRefusedIsAWarning)
{
    m_dom->Set("sqlite.config.nosuch", 1LL);
    m_dom->Set("sqlite.config.pmasz", -1LL);
    m_dom->Set("sqlite.config.uri", "yes");
    m_dom->Set("sqlite.config.hard_heap_limit", -5LL);
    CSqliteDatabase::InitializeSQLite(*m_dom);
    const std::vector<wxString> expected = {
        "SQLite setting 'sqlite.config.nosuch' is not known",
        "SQLite refuses -1 for 'sqlite.config.pmasz': column index out of "
        "range",
        "SQLite setting 'sqlite.config.uri' is not an integer",
        "SQLite refuses -5 for 'sqlite.config.hard_heap_limit': column index "
        "out of range"};
    EXPECT_EQ(m_log.m_texts, expected);
}

} // namespace
