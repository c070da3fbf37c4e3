// SPDX-License-Identifier: Apache-2.0
//
// How many agent events a second are stored?
//
// Peer: a bare prepared insert into a database with the same durability, on
// the same disk, by turns.

#include "Bench.h"

#include "support/DomPtr.h"
#include "support/TempDir.h"

#include "events/EventStore.h"
#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"
#include "kza_core/Time.h"

#include <sqlite3.h>

#include <cstdlib>

using namespace TestSupport;

namespace
{

constexpr int kTurns = 7;
constexpr int kEvents = 2000;
constexpr char kText[] = "Widget|Plugin-Widget-sol11-12.0.0-101.x86_64|"
                         "/opt/agent/bin/"
                         "Plugin-Widget-sol11-12.0.0-101.x86_64.kzp";

class CBareInsert
{
public:
    explicit CBareInsert(const std::string& path)
    {
        sqlite3_open(path.c_str(), &m_db);
        sqlite3_exec(m_db,
                     "pragma journal_mode=wal; pragma synchronous=full;"
                     "create table agent_event(id integer primary key, number,"
                     " severity, time, time_ms, text)",
                     nullptr, nullptr, nullptr);
        if (sqlite3_prepare_v2(m_db,
                               "insert into agent_event(number, severity, "
                               "time, time_ms, text) values(?,?,?,?,?)",
                               -1, &m_insert, nullptr) != SQLITE_OK)
            std::exit(1);
    }
    ~CBareInsert()
    {
        sqlite3_finalize(m_insert);
        sqlite3_close(m_db);
    }

    CBareInsert(const CBareInsert&) = delete;
    CBareInsert& operator=(const CBareInsert&) = delete;

    void Insert()
    {
        const std::int64_t now = KzaCore::TimeNowMillis();
        sqlite3_bind_int64(m_insert, 1, 5101);
        sqlite3_bind_int64(m_insert, 2, 5);
        sqlite3_bind_int64(m_insert, 3, now / 1000);
        sqlite3_bind_int64(m_insert, 4, now);
        sqlite3_bind_text(m_insert, 5, kText, -1, SQLITE_STATIC);
        if (sqlite3_step(m_insert) != SQLITE_DONE)
            std::exit(1);
        sqlite3_reset(m_insert);
    }

private:
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
};

// As the steps that apply packages do it: one event filled again and again.
void WriteEvent(KzaCore::CDom& dom, KzaCore::CAgentEvent& event)
{
    event.m_text = kText;
    event.m_number = 5101;
    event.m_severity = 5;
    event.m_timeMs = KzaCore::TimeNowMillis();
    event.m_time = static_cast<std::int32_t>(event.m_timeMs / 1000);
    for (const void* attribute : {static_cast<const void*>(&event.m_text),
                                  static_cast<const void*>(&event.m_number),
                                  static_cast<const void*>(&event.m_severity),
                                  static_cast<const void*>(&event.m_timeMs),
                                  static_cast<const void*>(&event.m_time)})
        event.SetAttributeNull(attribute, false);
    if (dom.AgentEventWrite(event) == 0)
        std::exit(1);
}

} // namespace

int main()
{
    const char* const build = std::getenv("KZA_BUILD_DIR");
    setenv("TMPDIR", build == nullptr ? "/var/tmp" : build, 1);
    const CTempDir dir;
    const DomPtr dom = NewDom();
    dom->Set(KzaCore::DomKey::kPathWork, dir.Path());
    KzaCore::CAgentEvent event;
    CBareInsert bare(dir.File("bare.db"));
    const auto times = [](auto&& once)
    {
        return [once]
        {
            for (int i = 0; i < kEvents; ++i)
                once();
        };
    };
    const auto best =
        Bench::BestOf(kTurns, times([&] { WriteEvent(*dom, event); }),
                      times([&] { bare.Insert(); }));
    Bench::Row("agent events, bare prepared insert", kEvents / best.ours,
               kEvents / best.peer, "/s", ">=0.9");
    KzaCore::CloseEventStore();
}
