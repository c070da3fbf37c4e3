// SPDX-License-Identifier: Apache-2.0

#include "events/EventStore.h"

#include "events/EventReader.h"

#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"
#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

using KzaCore::CAgentEvent;
using KzaCore::CStoredEvent;
using namespace TestSupport;
namespace fs = std::filesystem;
namespace DomKey = KzaCore::DomKey;

namespace
{

class EventStore : public ::testing::Test
{
protected:
    EventStore() { m_dom->Set(DomKey::kPathWork, m_dir.Path()); }
    ~EventStore() override { KzaCore::CloseEventStore(); }

    std::int64_t Write(const std::string& text)
    {
        CAgentEvent event;
        event.m_text = text;
        event.m_number = 5101;
        event.m_severity = 5;
        event.m_timeMs = 1700000000123;
        event.m_time = 1700000000;
        event.SetAttributeNull(&event.m_text, false);
        event.SetAttributeNull(&event.m_number, false);
        event.SetAttributeNull(&event.m_severity, false);
        event.SetAttributeNull(&event.m_timeMs, false);
        event.SetAttributeNull(&event.m_time, false);
        return m_dom->AgentEventWrite(event);
    }

    std::vector<CStoredEvent> Read(std::int64_t afterId = 0,
                                   std::int64_t limit = -1)
    {
        std::vector<CStoredEvent> events;
        std::string error;
        EXPECT_TRUE(KzaCore::ReadEvents(*m_dom, afterId, limit, events, error))
            << error;
        return events;
    }

    std::vector<std::string> Texts()
    {
        std::vector<std::string> texts;
        for (const CStoredEvent& event : Read())
            texts.push_back(event.text);
        return texts;
    }

    // What any SQLite tool sees: the rows of a query, columns joined by "|".
    std::vector<std::string> Query(const char* sql) const
    {
        std::vector<std::string> rows;
        sqlite3* db = nullptr;
        EXPECT_EQ(sqlite3_open(m_path.c_str(), &db), SQLITE_OK);
        const auto addRow = [](void* out, int count, char** values, char**)
        {
            std::string row;
            for (int i = 0; i < count; ++i)
                row += std::string(i == 0 ? "" : "|") +
                       (values[i] == nullptr ? "(null)" : values[i]);
            static_cast<std::vector<std::string>*>(out)->push_back(row);
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(db, sql, addRow, &rows, nullptr), SQLITE_OK)
            << sqlite3_errmsg(db);
        sqlite3_close(db);
        return rows;
    }

    // Files in the working directory that are not the database's own.
    [[nodiscard]] std::vector<std::string> Aside() const
    {
        std::vector<std::string> names;
        for (const auto& item : fs::directory_iterator(m_dir.Path()))
        {
            const std::string name = item.path().filename();
            if (name.rfind("events.db.", 0) == 0 &&
                name.find("-wal") == std::string::npos &&
                name.find("-shm") == std::string::npos)
                names.push_back(name);
        }
        return names;
    }

    // The event is in the log, the file aside, a new one begun.
    void ExpectSetAside(const std::string& reason)
    {
        ASSERT_EQ(Aside().size(), 1U);
        const std::string aside = m_dir.File(Aside()[0]);
        ASSERT_EQ(m_log.m_texts.size(), 2U);
        EXPECT_EQ(m_log.m_levels[0], wxLOG_Error);
        EXPECT_EQ(m_log.m_texts[0],
                  "Agent event not stored in its database (" + reason +
                      "): number 5101, severity 5, time 1700000000123, text "
                      "'event'");
        EXPECT_EQ(m_log.m_texts[1], "Event database '" + m_path +
                                        "' cannot be used (" + reason +
                                        "), set aside as '" + aside + "'");
        EXPECT_EQ(Texts(), std::vector<std::string>{"event"});
    }

    // Runs code in a child, which it must leave by _exit().
    static pid_t Fork(const std::function<void()>& code)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            code();
            _exit(0);
        }
        return child;
    }

    static int Reap(pid_t child)
    {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }

    CTempDir m_dir;
    std::string m_path = m_dir.File("events.db");
    DomPtr m_dom = NewDom();
    CCollectedLog m_log;
};

TEST_F(EventStore, AnEventIsARowThatAnyToolReads)
{
    EXPECT_EQ(Write("Widget|Plugin-Widget|/opt/\xc3\xa4'x"), 1);
    EXPECT_EQ(Query("select * from agent_event"),
              std::vector<std::string>{"1|5101|5|1700000000|1700000000123|"
                                       "Widget|Plugin-Widget|/opt/\xc3\xa4'x"});
    EXPECT_EQ(Query("select name from pragma_table_info('agent_event')"),
              (std::vector<std::string>{"id", "number", "severity", "time",
                                        "time_ms", "text"}));
    EXPECT_EQ(Query("pragma journal_mode"), std::vector<std::string>{"wal"});
    EXPECT_EQ(Query("pragma integrity_check"), std::vector<std::string>{"ok"});
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(EventStore, WhatIsNullIsStoredAsNull)
{
    CAgentEvent event;
    event.m_number = 7;
    event.m_severity = 8;
    event.SetAttributeNull(&event.m_number, false);
    EXPECT_EQ(m_dom->AgentEventWrite(event), 1);
    EXPECT_EQ(Query("select * from agent_event"),
              std::vector<std::string>{"1|7|(null)|(null)|(null)|(null)"});
    EXPECT_EQ(Write("full"), 2);
    EXPECT_EQ(m_dom->AgentEventWrite(event), 3) << "nothing is left bound";
    EXPECT_EQ(Query("select text from agent_event where id = 3"),
              std::vector<std::string>{"(null)"});
    EXPECT_EQ(Read(2)[0].text, "");
}

TEST_F(EventStore, FilesAreForTheOwnerAlone)
{
    const mode_t before = umask(0);
    EXPECT_EQ(Write("event"), 1);
    umask(before);
    for (const char* suffix : {"", "-wal", "-shm"})
    {
        struct stat status = {};
        ASSERT_EQ(stat((m_path + suffix).c_str(), &status), 0) << suffix;
        EXPECT_EQ(status.st_mode & 0777, 0600U) << suffix;
    }
}

TEST_F(EventStore, EventsAreReadFromAnIdOn)
{
    EXPECT_TRUE(Read().empty());
    EXPECT_FALSE(FileExists(m_path)) << "reading makes no database";
    for (const char* text : {"a", "b", "c", "d"})
        Write(text);
    EXPECT_EQ(Texts(), (std::vector<std::string>{"a", "b", "c", "d"}));
    const auto events = Read(1, 2);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].id, 2);
    EXPECT_EQ(events[0].number, 5101);
    EXPECT_EQ(events[0].severity, 5);
    EXPECT_EQ(events[0].time, 1700000000);
    EXPECT_EQ(events[0].timeMs, 1700000000123);
    EXPECT_EQ(events[0].text, "b");
    EXPECT_EQ(events[1].text, "c");
    EXPECT_TRUE(Read(4).empty());
    EXPECT_TRUE(Read(0, 0).empty());
}

TEST_F(EventStore, MayBeClosedAndUsedAgain)
{
    EXPECT_EQ(Write("a"), 1);
    KzaCore::CloseEventStore();
    KzaCore::CloseEventStore();
    EXPECT_FALSE(FileExists(m_path + "-wal")) << "closed in order";
    EXPECT_EQ(Write("b"), 2);
    EXPECT_EQ(Texts(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(EventStore, FollowsTheWorkingDirectory)
{
    const CTempDir other;
    Write("here");
    m_dom->Set(DomKey::kPathWork, other.Path());
    EXPECT_EQ(Write("there"), 1);
    EXPECT_EQ(Texts(), std::vector<std::string>{"there"});
    EXPECT_EQ(Query("select text from agent_event"),
              std::vector<std::string>{"here"});
}

TEST_F(EventStore, AnEventWithoutAPlaceIsInTheLog)
{
    m_dom->Remove(DomKey::kPathWork);
    EXPECT_EQ(Write("event"), 0);
    ASSERT_EQ(m_log.m_texts.size(), 1U);
    EXPECT_EQ(m_log.m_texts[0],
              "Agent event not stored in its database (there is no working "
              "directory): number 5101, severity 5, time 1700000000123, text "
              "'event'");
    EXPECT_TRUE(Read().empty());
    m_dom->Set(DomKey::kPathWork, m_dir.File("missing"));
    EXPECT_EQ(Write("event"), 0);
    EXPECT_EQ(m_log.m_texts.size(), 2U);
}

TEST_F(EventStore, ADamagedDatabaseIsSetAside)
{
    WriteFile(m_path, std::string(10000, 'x'));
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("file is not a database");
    EXPECT_EQ(ReadFile(m_dir.File(Aside()[0])), std::string(10000, 'x'));
}

TEST_F(EventStore, ATornDatabaseIsSetAside)
{
    for (int i = 0; i < 200; ++i)
        Write(std::string(100, 'x'));
    KzaCore::CloseEventStore();
    ASSERT_EQ(truncate(m_path.c_str(), 4096 * 2), 0);
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("database disk image is malformed");
}

TEST_F(EventStore, ADatabaseOfAnotherShapeIsSetAside)
{
    Query("create table agent_event(id integer primary key, other)");
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("table agent_event has no column named number");
}

TEST_F(EventStore, APlantedTriggerDoesNotRun)
{
    Write("before");
    KzaCore::CloseEventStore();
    Query("create table proof(text);"
          "create trigger planted after insert on agent_event begin "
          "insert into proof values(new.text);"
          "delete from agent_event; end");
    EXPECT_EQ(Write("event"), 2);
    EXPECT_EQ(Query("select * from proof"), std::vector<std::string>{});
    EXPECT_EQ(Texts(), (std::vector<std::string>{"before", "event"}));
}

constexpr char kPlantedView[] =
    "create table proof(text);"
    "create view agent_event as select 1 id, 2 number, 3 severity, 4 time, "
    "5 time_ms, 'planted' text;"
    "create trigger planted instead of insert on agent_event begin "
    "insert into proof values(new.text); end";

TEST_F(EventStore, APlantedViewIsSetAside)
{
    Query(kPlantedView);
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("cannot modify agent_event because it is a view");
    m_path = m_dir.File(Aside()[0]);
    EXPECT_EQ(Query("select * from proof"), std::vector<std::string>{});
}

TEST_F(EventStore, APlantedViewIsAnErrorToEveryReader)
{
    Query(kPlantedView);
    std::vector<CStoredEvent> events;
    std::string error;
    EXPECT_FALSE(KzaCore::ReadEvents(*m_dom, 0, -1, events, error));
    EXPECT_EQ(error, "cannot modify agent_event because it is a view");
    EXPECT_FALSE(KzaCore::ReadEventsOf(m_path, {}, events, error));
    EXPECT_EQ(error, m_path + ": access to view \"agent_event\" prohibited");
    EXPECT_EQ(events.size(), 0U);
}

TEST_F(EventStore, WhatIsNoFileIsSetAside)
{
    fs::create_directory(m_path);
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("unable to open database file");
    EXPECT_TRUE(fs::is_directory(m_dir.File(Aside()[0])));
}

TEST_F(EventStore, ALinkIsNotFollowed)
{
    WriteFile(m_dir.File("elsewhere"), "");
    fs::create_symlink(m_dir.File("elsewhere"), m_path);
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("unable to open database file");
    EXPECT_EQ(ReadFile(m_dir.File("elsewhere")), "");
}

TEST_F(EventStore, ALockedDatabaseIsSetAsideWithItsEvents)
{
    Write("before");
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "begin immediate", nullptr, nullptr, nullptr),
              SQLITE_OK);
    EXPECT_EQ(Write("event"), 1);
    ExpectSetAside("database is locked");

    // The program that held the lock does no harm to the new database.
    sqlite3_exec(other, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_EQ(Write("after"), 2);
    KzaCore::CloseEventStore();
    EXPECT_EQ(Texts(), (std::vector<std::string>{"event", "after"}));
    m_path = m_dir.File(Aside()[0]);
    EXPECT_EQ(Query("select text from agent_event"),
              std::vector<std::string>{"before"});
}

TEST_F(EventStore, TwoThatAreSetAsideHaveTwoNames)
{
    for (int i = 0; i < 3; ++i)
    {
        KzaCore::CloseEventStore();
        WriteFile(m_path, std::string(5000, 'x'));
        fs::remove(m_path + "-wal");
        EXPECT_EQ(Write("event"), 1);
    }
    EXPECT_EQ(Aside().size(), 3U);
}

TEST_F(EventStore, ARemovedDatabaseIsBegunAnew)
{
    Write("lost with the file");
    for (const char* suffix : {"", "-wal", "-shm"})
        ASSERT_EQ(unlink((m_path + suffix).c_str()), 0);
    EXPECT_EQ(Write("kept"), 1);
    EXPECT_EQ(Texts(), std::vector<std::string>{"kept"});
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(EventStore, AFullDiskPutsTheEventIntoTheLog)
{
    const pid_t child = Fork(
        [&]
        {
            EnterMountNamespace();
            MountTmpfs(m_dir.Path(), "64k");
            std::int64_t last = 1;
            for (int i = 0; i < 200 && last != 0; ++i)
                last = Write(std::string(1000, 'x'));
            const bool isLogged =
                last == 0 && m_log.m_texts.size() == 1 &&
                m_log.m_texts[0].Contains("database or disk is full") &&
                m_log.m_texts[0].Contains(std::string(1000, 'x'));
            _exit(isLogged && Aside().empty() ? 7 : 1);
        });
    const int status = Reap(child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

TEST_F(EventStore, AnEventThatWasWrittenSurvivesAKill)
{
    const pid_t child = Fork(
        [&]
        {
            Write("last words");
            raise(SIGKILL);
        });
    EXPECT_TRUE(WIFSIGNALED(Reap(child)));
    EXPECT_EQ(Texts(), std::vector<std::string>{"last words"});
}

TEST_F(EventStore, AForkedChildLeavesItsParentsConnectionAlone)
{
    Write("parent before");
    const pid_t child = Fork(
        [&]
        {
            Write("child");
            KzaCore::CloseEventStore();
        });
    EXPECT_EQ(Reap(child), 0);
    EXPECT_EQ(Write("parent after"), 3);

    // A child that ends in order leaves the parent's connection alone.
    EXPECT_EQ(Reap(Fork([] { KzaCore::CloseEventStore(); })), 0);
    EXPECT_EQ(Write("parent again"), 4);
    EXPECT_EQ(Texts(),
              (std::vector<std::string>{"parent before", "child",
                                        "parent after", "parent again"}));
    EXPECT_TRUE(m_log.m_texts.empty());
}

TEST_F(EventStore, ProcessesThatStartTogetherShareOneDatabase)
{
    constexpr int kProcesses = 8;
    constexpr int kEvents = 10;
    std::vector<pid_t> children;
    children.reserve(kProcesses);
    for (int i = 0; i < kProcesses; ++i)
        children.push_back(Fork(
            [&]
            {
                for (int k = 0; k < kEvents; ++k)
                    if (Write("event") == 0)
                        _exit(1);
            }));
    for (const pid_t child : children)
        EXPECT_EQ(Reap(child), 0);
    EXPECT_EQ(Texts().size(), std::size_t(kProcesses * kEvents));
    EXPECT_TRUE(Aside().empty());
}

TEST_F(EventStore, ThreadsShareOneConnection)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&]
            {
                for (int k = 0; k < 20; ++k)
                    EXPECT_NE(Write("event"), 0);
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Texts().size(), 80U);
}

TEST_F(EventStore, ADamagedDatabaseIsAnErrorToItsReader)
{
    WriteFile(m_path, std::string(10000, 'x'));
    std::vector<CStoredEvent> events;
    std::string error;
    EXPECT_FALSE(KzaCore::ReadEvents(*m_dom, 0, -1, events, error));
    EXPECT_EQ(error, "file is not a database");
    EXPECT_TRUE(Aside().empty()) << "only a writer needs a new one";
}

} // namespace
