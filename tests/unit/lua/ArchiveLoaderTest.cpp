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

#include <filesystem>

#include <sys/stat.h>

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
            "'m.lua' not found:\n\tno archives: the loader is not installed");
        SetUpState(m_dom.get());
        EXPECT_EQ(Run("local m = require('m') package.loaded.m = nil return m"),
                  "1");
    }
}

// What dom:ReadArchive answers: the bytes, or the reason.
class ReadArchive : public ArchiveLoader
{
protected:
    ReadArchive()
    {
        WriteFile(m_dir.File("one/data/x"), "one");
        WriteFile(m_dir.File("two/data/x"), "two");
        WriteFile(m_dir.File("two/data/y"), std::string(200000, 'y'));
        std::filesystem::create_directories(m_dir.File("one/data/z"));
        WriteFile(m_dir.File("a.kze"),
                  MakeZip({{"data/x", "archive"}, {"data/z", "archive"}}));
        m_dom->Set(KzaCore::DomKey::kLuaZipPath, m_dir.File("a.kze"));
        SetPath(m_dir.File("one/?.lua") + ";/no/template.lua;" +
                m_dir.File("two/?/init.lua"));
    }

    void SetPath(const std::string& path)
    {
        m_lua.SetPackagePaths("/no/bin", path, "");
    }

    std::string Read(const std::string& name)
    {
        return Run("local bytes, reason = dom:ReadArchive('" + name +
                   "') return bytes or reason");
    }
};

TEST_F(ReadArchive, LooksBesideTheModulesFirst)
{
    EXPECT_EQ(Read("data/x"), "one");
    EXPECT_EQ(Read("data/y"), std::string(200000, 'y'));
    EXPECT_EQ(Read("data/z"), "archive") << "a directory is no file";
    SetPath(m_dir.File("two/lib?.lua"));
    EXPECT_EQ(Read("data/x"), "two");
    SetPath("");
    EXPECT_EQ(Read("data/x"), "archive");
}

TEST_F(ReadArchive, AMissNamesEveryPlaceOnce)
{
    SetPath(m_dir.File("one/?.lua") + ";" + m_dir.File("one/?/init.lua") +
            ";?.lua");
    EXPECT_EQ(Read("none"), "'none' not found:\n\tno file '" +
                                m_dir.File("one/none") +
                                "'\n\tno file 'none'\n\tno file '" +
                                m_dir.File("a.kze/none") + "'");
}

TEST_F(ReadArchive, AFileThatCannotBeReadIsNotTakenFromElsewhere)
{
    const std::string loop = m_dir.File("one/loop");
    std::filesystem::create_symlink(loop, loop);
    WriteFile(m_dir.File("two/loop"), "two");
    EXPECT_EQ(Read("loop"), loop + ": Too many levels of symbolic links");
}

TEST_F(ReadArchive, AFifoIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo(m_dir.File("one/fifo").c_str(), 0600), 0);
    WriteFile(m_dir.File("two/fifo"), "two");
    EXPECT_EQ(Read("fifo"), "two");
}

TEST_F(ReadArchive, ANameLeadsNowhereElse)
{
    WriteFile(m_dir.File("secret"), "secret");
    WriteFile(m_dir.File("a.kze"), MakeZip({{"/etc/passwd", "x"}}));
    for (const std::string& name :
         {std::string("../secret"), std::string("data/../x"), std::string(".."),
          m_dir.File("secret"), std::string("/etc/passwd")})
        EXPECT_EQ(Read(name), "'" + name +
                                  "' not found: a name is relative and has no "
                                  "'..'");
    WriteFile(m_dir.File("one/a..b"), "dots");
    EXPECT_EQ(Read("a..b"), "dots");
    EXPECT_EQ(Read("data/x\\0y"), "'data/x") << "up to the NUL";
    EXPECT_EQ(Read("").find("'' not found:"), 0U);
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
