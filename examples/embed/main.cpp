// SPDX-License-Identifier: Apache-2.0
//
// A program that is no agent and stands on the agent's library: it has a
// domain, a log, a thread and a Lua state, which meet in the domain.
//
//     embed DIRECTORY    the log appears in DIRECTORY/log/embed.log

#include <kza_core/Dom.h>
#include <kza_core/Log2Disk.h>
#include <kza_core/LuaInterpreter.h>
#include <kza_core/Runnable.h>
#include <kza_core/Version.h>

#include <wx/init.h>
#include <wx/log.h>
#include <wx/mstream.h>

#include <lua.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string_view>

using namespace KzaCore;

namespace
{

struct CDomRelease
{
    void operator()(CDom* dom) const { dom->Release(); }
};

// Waits for a question in the domain and puts the answer beside it.
class CAnswerer : public CRunnable
{
public:
    explicit CAnswerer(CDom& dom) : CRunnable(false, -1, false)
    {
        SetDom(&dom);
    }

    void OnRun() override
    {
        std::uint64_t seen = 0;
        long long question = 0;
        while (!TestDestroy())
        {
            // False when the thread is asked to end, too.
            if (!GetDom()->Wait("question", std::chrono::seconds(1), seen) ||
                !GetDom()->Get("question", question))
                continue;
            wxLogMessage("The thread is asked about %lld", question);
            GetDom()->Set("answer", question * question);
        }
    }
};

// The functions of Lua's libraries, and the domain as the global `dom`, which
// the agent's own scripts have too.
constexpr std::string_view kScript = R"(
  dom:Set("question", 7)
  while not dom:Get("answer") do dom:Wait("answer", 1000) end
  print("Lua was told " .. dom:Get("answer"))
)";

bool RunLua(CDom& dom)
{
    CLuaInterpreter lua(false, L"embed", true);
    PushDom(lua.L(), &dom);
    lua_setglobal(lua.L(), "dom");
    wxMemoryInputStream script(kScript.data(), kScript.size());
    if (lua.RunScript(script, 0, 0, "embed", nullptr) == 0)
        return true;
    wxLogError("%s", lua.GetErrorInfo());
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: embed DIRECTORY\n");
        return 2;
    }
    const wxInitializer framework;
    if (!framework.IsOk())
        return 1;

    // The first domain is the root, where the log finds its place and name.
    const std::unique_ptr<CDom, CDomRelease> dom(
        CDom::New(nullptr, nullptr, nullptr, false));
    dom->Set(DomKey::kPathWork, argv[1]);
    dom->Set(DomKey::kName, "embed");
    delete wxLog::SetActiveTarget(new CLog2Disk);
    wxLogMessage("Over version %s of the library", KZA_CORE_VERSION);

    CAnswerer answerer(*dom);
    if (!answerer.start(50, true, 0))
        return 1;
    const bool isFine = RunLua(*dom);
    answerer.requestExit();
    answerer.join();
    delete wxLog::SetActiveTarget(nullptr);
    return isFine ? 0 : 1;
}
