// SPDX-License-Identifier: Apache-2.0
//
// The class "SLB.Dom" as the host sees it: pushed objects, the registry, and
// failures that a script cannot cause by itself.

#include "kza_core/Dom.h"
#include "lua/LuaGuard.h"
#include "process/WakeUp.h"

#include "support/DomPtr.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <thread>

using namespace KzaCore;
using TestSupport::DomPtr;
using TestSupport::NewDom;

namespace
{

// A state whose memory can be made to run out.
class CState
{
public:
    CState() : m_state(lua_newstate(AllocateCB, this)) { luaL_openlibs(L()); }
    ~CState()
    {
        blocksLeft = kNoLimit;
        largest = kNoLimit;
        lua_close(m_state);
    }

    CState(const CState&) = delete;
    CState& operator=(const CState&) = delete;

    [[nodiscard]] lua_State* L() const { return m_state; }

    // Runs Lua source; the error's text, or nothing.
    [[nodiscard]] std::string Run(const char* source) const
    {
        std::string error;
        if (luaL_dostring(L(), source))
        {
            error = lua_tostring(L(), -1);
            lua_pop(L(), 1);
        }
        return error;
    }

    static constexpr size_t kNoLimit = ~size_t(0);
    size_t largest = kNoLimit;    // block that there is memory for
    size_t blocksLeft = kNoLimit; // how many more there is memory for

private:
    static void* AllocateCB(void* data, void* block, size_t old, size_t size)
    {
        auto* const self = static_cast<CState*>(data);
        if (size == 0)
        {
            std::free(block);
            return nullptr;
        }
        // Lua relies on it that a block can always be made smaller.
        const bool grows = block == nullptr || size > old;
        if (grows && (size > self->largest || self->blocksLeft == 0))
            return nullptr;
        if (grows && self->blocksLeft != kNoLimit)
            --self->blocksLeft;
        return std::realloc(block, size);
    }

    lua_State* const m_state;
};

int Throw(lua_State* /*L*/)
{
    throw std::length_error("longer than memory");
}

void SetGlobal(const CState& state, const char* name, CDom* dom)
{
    PushDom(state.L(), dom);
    lua_setglobal(state.L(), name);
}

} // namespace

TEST(DomLua, NoDomainIsNil)
{
    const CState state;
    PushDom(state.L(), nullptr);
    EXPECT_TRUE(lua_isnil(state.L(), -1));
    EXPECT_EQ(lua_gettop(state.L()), 1);
}

TEST(DomLua, PushLeavesOneValueAndDefinesTheClassOnce)
{
    const DomPtr dom = NewDom();
    const CState state;
    lua_State* const L = state.L();
    PushDom(L, dom.get());
    EXPECT_EQ(lua_gettop(L), 1);
    ASSERT_TRUE(lua_getmetatable(L, 1));
    luaL_getmetatable(L, "SLB.Dom");
    EXPECT_TRUE(lua_rawequal(L, -1, -2));
    const void* const defined = lua_topointer(L, -1);
    lua_settop(L, 1);

    PushDom(L, dom.get());
    EXPECT_EQ(lua_gettop(L), 2);
    ASSERT_TRUE(lua_getmetatable(L, 2));
    EXPECT_EQ(lua_topointer(L, -1), defined);
}

TEST(DomLua, ExistingClassIsLeftAlone)
{
    const DomPtr dom = NewDom();
    const CState state;
    lua_State* const L = state.L();
    luaL_newmetatable(L, "SLB.Dom");
    PushDom(L, dom.get());
    ASSERT_TRUE(lua_getmetatable(L, -1));
    EXPECT_TRUE(lua_rawequal(L, -1, 1));
    lua_pushnil(L);
    EXPECT_EQ(lua_next(L, 1), 0); // still empty
}

TEST(DomLua, EndOfTheStateLeavesTheDomain)
{
    const DomPtr dom = NewDom();
    {
        const CState state;
        SetGlobal(state, "dom", dom.get());
        EXPECT_EQ(state.Run("dom:Set('k', 'v')"), "");
    }
    EXPECT_EQ(dom->Get("k"), "v");
}

TEST(DomLua, TwoDomainsInOneStateAreApart)
{
    const DomPtr one = NewDom();
    const DomPtr other = NewDom();
    const CState state;
    SetGlobal(state, "one", one.get());
    SetGlobal(state, "other", other.get());
    EXPECT_EQ(state.Run("one:Wait('k', 0); other:Wait('k', 0)\n"
                        "one:Set('k', 1)\n"
                        "assert(other:Get('k') == nil)\n"
                        "assert(not other:Wait('k', 0))\n"
                        "assert(one:Wait('k', 0))\n"),
              "");
}

TEST(DomLua, TwoReferencesShareWhatWasSeen)
{
    const DomPtr dom = NewDom();
    const CState state;
    SetGlobal(state, "one", dom.get());
    SetGlobal(state, "other", dom.get());
    EXPECT_EQ(state.Run("one:Wait('k', 0)\n"
                        "one:Set('k', 1)\n"
                        "assert(other:Wait('k', 0))\n"
                        "assert(not one:Wait('k', 0))\n"),
              "");
}

TEST(DomLua, ChangeByAnotherThreadWakesTheScript)
{
    const DomPtr dom = NewDom();
    const CState state;
    SetGlobal(state, "dom", dom.get());
    EXPECT_EQ(state.Run("dom:Wait('k', 0)"), "");
    std::thread writer([&] { dom->Set("k", "v"); });
    EXPECT_EQ(state.Run("assert(dom:Wait('k', math.huge))\n"
                        "assert(dom:Get('k') == 'v')"),
              "");
    writer.join();
}

TEST(DomLua, ShortMemoryIsALuaErrorAndHoldsNoReader)
{
    const DomPtr dom = NewDom();
    dom->Set("large", std::string(1000000, 'x'));
    CState state;
    SetGlobal(state, "dom", dom.get());
    ASSERT_EQ(state.Run("dom:Get('large')"), "");

    ASSERT_EQ(luaL_loadstring(state.L(), "dom:Get('large')"), LUA_OK);
    state.largest = 500000;
    EXPECT_EQ(lua_pcall(state.L(), 0, 0, 0), LUA_ERRMEM);
    state.largest = CState::kNoLimit;
    EXPECT_STREQ(lua_tostring(state.L(), -1), "not enough memory");
    EXPECT_EQ(state.Run("assert(#dom:Get('large') == 1000000)"), "");
}

TEST(DomLua, ClassIsWholeOrAbsentWhenMemoryIsShort)
{
    const DomPtr dom = NewDom();
    const auto push = [](lua_State* L)
    {
        PushDom(L, static_cast<CDom*>(lua_touserdata(L, 1)));
        return 1;
    };
    int failures = 0;
    for (size_t blocks = 0;; ++blocks)
    {
        CState state;
        lua_State* const L = state.L();
        lua_pushcfunction(L, push);
        lua_pushlightuserdata(L, dom.get());
        state.blocksLeft = blocks;
        const int status = lua_pcall(L, 1, 1, 0);
        state.blocksLeft = CState::kNoLimit;
        lua_settop(L, 0);
        if (status == LUA_OK)
            break;
        ++failures;
        SetGlobal(state, "dom", dom.get());
        EXPECT_EQ(state.Run("assert(dom:Get('k') == nil)\n"
                            "assert(dom:Wait('k', 0) == false)\n"
                            "assert(getmetatable(dom).__gc)"),
                  "");
    }
    EXPECT_GT(failures, 5);
}

TEST(DomLua, ExceptionsOfTheLibraryBecomeLuaErrors)
{
    const CState state;
    lua_State* const L = state.L();
    lua_pushcfunction(L, Guarded<Throw>);
    EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRRUN);
    EXPECT_STREQ(lua_tostring(L, -1), "longer than memory");
}

TEST(DomLua, IntegersComeAsNumbers)
{
    const DomPtr dom = NewDom();
    dom->Set("k", -42LL);
    const CState state;
    SetGlobal(state, "dom", dom.get());
    EXPECT_EQ(state.Run("assert(dom:Get('k') == -42)\n"
                        "dom:Set('k', -2^63)"),
              "");
    long long value = 0;
    EXPECT_TRUE(dom->Get("k", value));
    EXPECT_EQ(value, std::numeric_limits<long long>::min());
}

TEST(DomLua, WorkingDirectoryNeedsTheAgents)
{
    const DomPtr dom = NewDom();
    const CState state;
    SetGlobal(state, "dom", dom.get());
    EXPECT_EQ(state.Run("local path, message = dom:GetPluginWorkdir('plugin')\n"
                        "assert(path == nil)\n"
                        "error(message, 0)"),
              "No working directory for plugin \"plugin\": the agent has none "
              "itself");
}

// A stop that is announced to a script: what its waits answer, and that no
// change of a key is lost or reported again and again.
TEST(DomLua, ChangeDuringAnAnnouncedStopIsReportedOnceItIsWithdrawn)
{
    const DomPtr dom = NewDom();
    std::thread(
        [&dom]
        {
            const CState state;
            SetGlobal(state, "dom", dom.get());
            const auto self = CWakeUp::Current();
            EXPECT_EQ(state.Run("assert(not dom:Wait('k', 0))"), "");

            self->AnnounceStop();
            EXPECT_EQ(state.Run("dom:Set('k', 1)"
                                "assert(not dom:Wait('k', 1e9))"
                                "dom:Set('k', 2)"
                                "assert(not dom:Wait('k', 1e9))"),
                      "");
            // Neither change ends this one at once.
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(state.Run("assert(not dom:Wait('k', 20))"), "");
            EXPECT_GE(std::chrono::steady_clock::now() - start,
                      std::chrono::milliseconds(20));

            self->WithdrawStop();
            EXPECT_EQ(state.Run("assert(dom:Wait('k', 0))"
                                "assert(not dom:Wait('k', 0))"),
                      "");
        })
        .join();
}

TEST(DomLua, ChangeOfAKeyFirstWaitedForDuringAStopIsReportedAfterwards)
{
    const DomPtr dom = NewDom();
    std::thread(
        [&dom]
        {
            const CState state;
            SetGlobal(state, "dom", dom.get());
            CWakeUp::Current()->AnnounceStop();
            EXPECT_EQ(state.Run("assert(not dom:Wait('k', 1e9))"
                                "assert(not dom:Wait('k', 1))"
                                "dom:Set('k', 1)"
                                "assert(not dom:Wait('k', 1e9))"),
                      "");
            CWakeUp::Current()->WithdrawStop();
            EXPECT_EQ(state.Run("assert(dom:Wait('k', 0))"), "");
        })
        .join();
}
