// SPDX-License-Identifier: Apache-2.0
//
// The searchers of a state that is set up twice, and of one whose registry a
// script has changed.

#include "kza_core/Dom.h"
#include "kza_core/LuaInterpreter.h"
#include "support/DomPtr.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>
#include <lua.hpp>
#include <wx/mstream.h>

using namespace TestSupport;

namespace
{

class ArchiveLoader : public ::testing::Test
{
protected:
    ArchiveLoader() { SetUpState(m_dom.get()); }

    void SetUpState(KzaCore::CDom* dom)
    {
        m_lua.SetPackagePaths("/no/bin", "", "");
        KzaCore::PushDom(m_lua.L(), dom);
        lua_setglobal(m_lua.L(), "dom");
        dom->RegisterLoader(m_lua.L());
    }

    // The chunk's result as text, or its error.
    std::string Run(const std::string& code)
    {
        wxMemoryInputStream in(code.data(), code.size());
        if (m_lua.RunScript(in, 0, 1, "chunk", nullptr) != 0)
            return std::string(m_lua.GetErrorInfo().utf8_str());
        std::string text = luaL_tolstring(m_lua.L(), -1, nullptr);
        lua_settop(m_lua.L(), 0);
        return text;
    }

    std::string MakeArchive(const std::string& name, const std::string& result)
    {
        WriteFile(m_dir.File(name), MakeZip({{"m.lua", "return " + result}}));
        return m_dir.File(name);
    }

    CTempDir m_dir;
    DomPtr m_dom = NewDom();
    KzaCore::CLuaInterpreter m_lua{false, L"test.lua", true};
};

TEST_F(ArchiveLoader, ASecondSetUpAddsNoSearcher)
{
    EXPECT_EQ(Run("return #package.searchers"), "6");
    SetUpState(m_dom.get());
    EXPECT_EQ(Run("return #package.searchers"), "6");
}

TEST_F(ArchiveLoader, ASecondSetUpAsksItsOwnDomain)
{
    const DomPtr other = NewDom();
    m_dom->Set(KzaCore::DomKey::kLuaZipPath, MakeArchive("one", "1"));
    other->Set(KzaCore::DomKey::kLuaZipPath, MakeArchive("two", "2"));
    EXPECT_EQ(Run("return require('m')"), "1");
    SetUpState(other.get());
    EXPECT_EQ(Run("package.loaded.m = nil return require('m')"), "2");
}

TEST_F(ArchiveLoader, ARegistryThatAScriptChangedIsNoCrash)
{
    m_dom->Set(KzaCore::DomKey::kLuaZipPath, MakeArchive("one", "1"));
    for (const char* const value : {"nil", "{}", "io.stdout", "'text'", "7"})
    {
        SCOPED_TRACE(value);
        EXPECT_EQ(
            Run("local registry = debug.getregistry()\n"
                "for key in pairs(registry) do\n"
                "  if tostring(key):find('^kza') then\n"
                "    registry[key] = " +
                std::string(value) +
                "\n  end\n"
                "end\n"
                "local ok, message = pcall(require, 'm')\n"
                "assert(message:find('no archives: not in the registry any "
                "more', 1, true), message)\n"
                "local bytes, reason = dom:ReadArchive('m.lua')\n"
                "assert(not bytes, bytes)\n"
                "return reason"),
            "no archives: the loader is not installed");
        SetUpState(m_dom.get());
        EXPECT_EQ(Run("local m = require('m') package.loaded.m = nil return m"),
                  "1");
    }
}

TEST_F(ArchiveLoader, AClassThatAScriptReplacedIsNoCrash)
{
    for (const char* const value : {"nil", "'text'", "7"})
    {
        SCOPED_TRACE(value);
        EXPECT_EQ(Run("debug.getregistry()['SLB.Dom'] = " + std::string(value) +
                      "\nreturn dom:Get('none')"),
                  "nil");
        SetUpState(m_dom.get());
    }
    EXPECT_EQ(Run("local mine = debug.getregistry()['FILE*']\n"
                  "debug.getregistry()['SLB.Dom'] = mine\n"
                  "return select(2, pcall(dom.Get, io.stdout, 'key'))"),
              "bad argument #1 to '?' (SLB.Dom expected, got userdata)");
}

} // namespace
