// SPDX-License-Identifier: Apache-2.0
//
// What becomes of error values, and of calls of methods that are not there.

#include "kza_core/Dom.h"
#include "kza_core/LuaInterpreter.h"

#include "support/DomPtr.h"

#include <gtest/gtest.h>
#include <lua.hpp>
#include <wx/mstream.h>

#include <cstring>
#include <string>

using namespace TestSupport;

namespace
{

class ErrorReport : public ::testing::Test
{
protected:
    ErrorReport()
    {
        KzaCore::PushDom(m_lua.L(), m_dom.get());
        lua_setglobal(m_lua.L(), "dom");
    }

    // The error of a chunk without its traceback.
    std::string ErrorOf(const std::string& code)
    {
        wxMemoryInputStream in(code.data(), code.size());
        EXPECT_NE(m_lua.RunScript(in, 0, 0, "chunk", nullptr), 0) << code;
        const std::string text(m_lua.GetErrorInfo().utf8_str());
        return text.substr(0, text.find("\nstack traceback:"));
    }

    DomPtr m_dom = NewDom();
    KzaCore::CLuaInterpreter m_lua{false, L"test.lua", true};
};

struct CCase
{
    const char* code;
    const char* text;
};

TEST_F(ErrorReport, ATableShowsItsFields)
{
    constexpr CCase kCases[] = {
        {"error({})", "{}"},
        {"error({code = 5, text = 'no\\nroute'})",
         "{code = 5, text = \"no\\nroute\"}"},
        {"error({'a', 'b', [0] = false, [-1.5] = 'x'})",
         "{[-1.5] = \"x\", [0] = false, [1] = \"a\", [2] = \"b\"}"},
        {"error({['a b'] = 1, ['1'] = 2, [''] = 3, _x1 = 4, ['\"\\\\\\0'] = "
         "5})",
         "{[\"\"] = 3, [\"\\\"\\\\\\0\"] = 5, [\"1\"] = 2, _x1 = 4, "
         "[\"a b\"] = 1}"},
        {"error({f = print, u = io.stdout, t = coroutine.create(print)})",
         "{f = (function), t = (thread), u = (userdata)}"},
        {"error({a = {b = {c = 1}, d = {}, e = 2}})",
         "{a = {b = {\u2026}, d = {}, e = 2}}"},
        {"error({a = 1, [true] = 2, [{}] = 3})", "{a = 1, \u2026}"},
        {"error({[{}] = 3})", "{\u2026}"},
        {"local t = {} t.t = t error(t)", "{t = {t = {\u2026}}}"},
        {"error(setmetatable({a = 1}, {__index = error, __pairs = error}))",
         "{a = 1}"},
        {"error(setmetatable({a = 1}, {__tostring = function() return 'me' "
         "end}))",
         "me"},
        {"error(setmetatable({a = 1}, {__tostring = function() return {} "
         "end}))",
         "{a = 1}"},
    };
    for (const CCase& test : kCases)
        EXPECT_EQ(ErrorOf(test.code), test.text) << test.code;
}

TEST_F(ErrorReport, OtherValuesShowTheirType)
{
    EXPECT_EQ(ErrorOf("error(nil)"), "(error object is a nil value)");
    EXPECT_EQ(ErrorOf("error(print)"), "(error object is a function value)");
    EXPECT_EQ(ErrorOf("error(12, 0)"), "12");
}

TEST_F(ErrorReport, ATableShowsTwentyFieldsInAll)
{
    EXPECT_EQ(ErrorOf("local t = {} for i = 1, 20 do t[i] = 0 end error(t)")
                  .find("\u2026"),
              std::string::npos);
    std::string twenty;
    for (int i = 1; i <= 20; ++i)
        twenty += "[" + std::to_string(i) + "] = 0, ";
    EXPECT_EQ(ErrorOf("local t = {} for i = 100000, 1, -1 do t[i] = 0 end\n"
                      "error(t)"),
              "{" + twenty + "\u2026}");
    EXPECT_EQ(
        ErrorOf("local a = {} for i = 1, 18 do a[i] = i end\n"
                "error({a = a, b = 1, c = 2, d = {x = 1}})"),
        "{a = {[1] = 1, [2] = 2, [3] = 3, [4] = 4, [5] = 5, [6] = 6, [7] = 7, "
        "[8] = 8, [9] = 9, [10] = 10, [11] = 11, [12] = 12, [13] = 13, "
        "[14] = 14, [15] = 15, [16] = 16, [17] = 17, [18] = 18}, b = 1, "
        "\u2026}");
}

TEST_F(ErrorReport, AMissingMethodNamesASimilarOne)
{
    constexpr CCase kCases[] = {
        {"dom:get('k')", "chunk:1: attempt to call method 'get' (a nil value), "
                         "did you mean 'Get'?"},
        {"dom:LOG('error', 'x')",
         "chunk:1: attempt to call method 'LOG' (a nil value), did you mean "
         "'Log'?"},
        {"local d = {dom = dom} d.dom:Slep(1)",
         "chunk:1: attempt to call method 'Slep' (a nil value), did you mean "
         "'Sleep'?"},
        {"local function f(x, ...) return x:readarchvie(...) end f(dom, 1, 2)",
         "chunk:1: attempt to call method 'readarchvie' (a nil value), did you "
         "mean 'ReadArchive'?"},
        {"local s = 'x' s:Upper()",
         "chunk:1: attempt to call method 'Upper' (a nil value), did you mean "
         "'upper'?"},
        {"local class = {go_on = print}\n"
         "local object = setmetatable({go_un = 1}, {__index = class})\n"
         "object:goon()",
         "chunk:3: attempt to call method 'goon' (a nil value), did you mean "
         "'go_on'?"},
        {"dom:nothing_like_it()", "chunk:1: attempt to call method "
                                  "'nothing_like_it' (a nil value)"},
        {"dom.get('k')", "chunk:1: attempt to call field 'get' (a nil value)"},
        {"error(\"attempt to call method 'get' (a nil value)\")",
         "chunk:1: attempt to call method 'get' (a nil value)"},
        {"coroutine.wrap(function() dom:get() end)()",
         "chunk:1: chunk:1: attempt to call method 'get' (a nil value)"},
    };
    for (const CCase& test : kCases)
        EXPECT_EQ(ErrorOf(test.code), test.text) << test.code;
}

TEST_F(ErrorReport, TheTracebackFollowsTheHint)
{
    const char* const code = "dom:get('k')";
    wxMemoryInputStream in(code, std::strlen(code));
    EXPECT_EQ(m_lua.RunScript(in, 0, 0, "chunk", nullptr), LUA_ERRRUN);
    EXPECT_EQ(m_lua.GetErrorInfo(),
              "chunk:1: attempt to call method 'get' (a nil value), did you "
              "mean 'Get'?\nstack traceback:\n\tchunk:1: in main chunk");
}

} // namespace
