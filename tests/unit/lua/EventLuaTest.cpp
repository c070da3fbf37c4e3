// SPDX-License-Identifier: Apache-2.0

#include "events/EventStore.h"
#include "kza_core/Dom.h"
#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <memory>

using namespace TestSupport;

namespace
{

class EventLua : public ::testing::Test
{
protected:
    EventLua()
    {
        m_dom->Set(KzaCore::DomKey::kPathWork, m_dir.Path());
        luaL_openlibs(m_state.get());
        KzaCore::PushDom(m_state.get(), m_dom.get());
        lua_setglobal(m_state.get(), "dom");
    }
    ~EventLua() override { KzaCore::CloseEventStore(); }

    // The result of a chunk as text, or its error without the position.
    std::string Run(const std::string& chunk)
    {
        lua_State* const L = m_state.get();
        if (luaL_dostring(L, chunk.c_str()) != 0)
        {
            std::string error = lua_tostring(L, -1);
            const std::string mark = "]:1: ";
            error.erase(0, error.find(mark) + mark.size());
            lua_settop(L, 0);
            return error;
        }
        std::string result;
        for (int i = 1; i <= lua_gettop(L); ++i)
        {
            result +=
                (i > 1 ? " " : "") + std::string(luaL_tolstring(L, i, nullptr));
            lua_pop(L, 1);
        }
        lua_settop(L, 0);
        return result;
    }

    CTempDir m_dir;
    DomPtr m_dom = NewDom();
    std::unique_ptr<lua_State, decltype(&lua_close)> m_state{luaL_newstate(),
                                                             &lua_close};
    CCollectedLog m_log;
};

TEST_F(EventLua, WritesAndReadsEvents)
{
    EXPECT_EQ(Run("return #dom:AgentEvents()"), "0");
    EXPECT_EQ(Run("before = os.time()\n"
                  "return dom:AgentEventWrite{text='a\\0b', number=7, "
                  "severity=2}"),
              "1");
    EXPECT_EQ(Run("return dom:AgentEventWrite{text='', number=4294967295, "
                  "severity=0}"),
              "2");
    EXPECT_EQ(Run("local e = dom:AgentEvents()\n"
                  "return #e, e[1].id, e[1].number, e[1].severity, "
                  "e[1].text == 'a\\0b', e[2].number, e[2].text"),
              "2 1 7 2 true 4294967295 ");
    EXPECT_EQ(Run("local e = dom:AgentEvents()[1]\n"
                  "return e.time >= before, e.time <= os.time() + 1, "
                  "math.floor(e.time_ms / 1000) == e.time"),
              "true true true");
    EXPECT_EQ(Run("local n = 0\n"
                  "for _ in pairs(dom:AgentEvents()[1]) do n = n + 1 end\n"
                  "return n"),
              "6");
}

TEST_F(EventLua, ReadsFromAnIdOnAndNoMoreThanAsked)
{
    for (int i = 0; i < 5; ++i)
        Run("dom:AgentEventWrite{text='x', number=1, severity=5}");
    EXPECT_EQ(Run("return #dom:AgentEvents(2)"), "3");
    EXPECT_EQ(Run("return #dom:AgentEvents(2, 2), dom:AgentEvents(2, 2)[1].id"),
              "2 3");
    EXPECT_EQ(Run("return #dom:AgentEvents(nil, 1)"), "1");
    EXPECT_EQ(Run("return #dom:AgentEvents(0, 0)"), "0");
    EXPECT_EQ(Run("return #dom:AgentEvents(99)"), "0");
}

TEST_F(EventLua, WrongArgumentsAreErrors)
{
    const std::string write = "bad argument #1 to 'AgentEventWrite' ";
    const std::string read = "to 'AgentEvents' ";
    const struct
    {
        const char* call;
        std::string error;
    } cases[] = {
        {"dom:AgentEventWrite()", write + "(table expected, got no value)"},
        {"dom:AgentEventWrite('x')", write + "(table expected, got string)"},
        {"dom:AgentEventWrite{}",
         write + "(string expected for field 'text', got nil)"},
        {"dom:AgentEventWrite{text=1}",
         write + "(string expected for field 'text', got number)"},
        {"dom:AgentEventWrite{text='x', severity=1}",
         write + "(number expected for field 'number', got nil)"},
        {"dom:AgentEventWrite{text='x', number=1}",
         write + "(number expected for field 'severity', got nil)"},
        {"dom:AgentEventWrite{text='x', number='1', severity=1}",
         write + "(number expected for field 'number', got string)"},
        {"dom:AgentEventWrite{text='x', number=-1, severity=1}",
         write + "(integer from 0 to 4294967295 expected for field 'number')"},
        {"dom:AgentEventWrite{text='x', number=1, severity=1.5}",
         write +
             "(integer from 0 to 4294967295 expected for field 'severity')"},
        {"dom:AgentEventWrite{text='x', number=0/0, severity=1}",
         write + "(integer from 0 to 4294967295 expected for field 'number')"},
        {"dom:AgentEventWrite{text='x', number=2^32, severity=1}",
         write + "(integer from 0 to 4294967295 expected for field 'number')"},
        {"dom:AgentEvents('x')",
         "bad argument #1 " + read + "(number expected, got string)"},
        {"dom:AgentEvents(-1)", "bad argument #1 " + read + "(not a count)"},
        {"dom:AgentEvents(0, 1.5)",
         "bad argument #2 " + read + "(not a count)"},
        {"dom.AgentEvents()",
         "bad argument #1 " + read + "(SLB.Dom expected, got no value)"},
        {"dom.AgentEventWrite({}, {})",
         write + "(SLB.Dom expected, got table)"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(Run(test.call), test.error) << test.call;
    EXPECT_EQ(Run("return #dom:AgentEvents()"), "0");
}

TEST_F(EventLua, EventsThatCannotBeReadAreNilAndTheReason)
{
    WriteFile(m_dir.File("events.db"), std::string(5000, 'x'));
    EXPECT_EQ(Run("return dom:AgentEvents()"), "nil file is not a database");
}

TEST_F(EventLua, AnEventThatIsOnlyInTheLogHasTheIdZero)
{
    m_dom->Set(KzaCore::DomKey::kPathWork, m_dir.File("missing"));
    EXPECT_EQ(Run("return dom:AgentEventWrite{text='x', number=1, severity=1}"),
              "0");
    EXPECT_EQ(m_log.m_texts.size(), 1U);
}

} // namespace
