// SPDX-License-Identifier: Apache-2.0
//
// How a sample is taken:
//
//   1. The timer's signal interrupts the thread. Its handler only sets a hook
//   in
//      the coroutine that runs, which lua_sethook() allows at any moment.
//   2. The hook is called by Lua at the next instruction, or when the C
//   function
//      that runs returns or calls Lua. It restores the hook that was there
//      before, walks the stack and writes a line to the file.
//
// One sample stands for all the CPU time since the one before, so signals that
// the system merges cost precision and no time.

#include "lua/LuaProfile.h"

#include "base/Descriptor.h"
#include "base/Error.h"
#include "base/WholeTransfer.h"
#include "lua/LuaGuard.h"
#include "process/CpuTimer.h"

#include <lua.hpp>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <new>
#include <unordered_map>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// A walk takes time with the square of the depth, because Lua counts levels
// from the innermost function on.
constexpr int kDeepest = 128;

// A hook and where it is set.
struct CHook
{
    lua_State* state = nullptr;
    lua_Hook function = nullptr;
    int mask = 0;
    int count = 0;
};

// The coroutine that runs, and whether the hook is at work; both are read by
// the handler of the signal.
std::atomic<lua_State*> s_running = nullptr;
std::atomic<bool> s_sampling = false;
CHook s_before; // the hook that the handler has replaced

class CSamples
{
public:
    bool Open(const std::string& path);
    void Add(lua_State* top);

    std::vector<lua_State*> states; // those that run, the innermost last

private:
    void AddStack(lua_State* L);
    int NumberOf(lua_State* L, lua_Debug* function);

    CDescriptor m_file;
    pid_t m_process = 0;
    std::chrono::nanoseconds m_last{};
    std::unordered_map<std::string, int> m_functions;
    std::vector<int> m_stack; // of the sample, the innermost first
    bool m_cut = false;
    std::string m_text;
};

CSamples s_samples;

bool CSamples::Open(const std::string& path)
{
    m_file = CDescriptor(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    m_process = getpid();
    m_last = ThreadCpuTime();
    return m_file.IsOpen();
}

// Without control characters, which would end a field.
std::string Plain(const char* text)
{
    std::string plain = text == nullptr ? "" : text;
    for (char& c : plain)
        if (static_cast<unsigned char>(c) < ' ')
            c = ' ';
    return plain;
}

// The number of a function, whose line is added to the text when it is new. The
// name is that of the call, so it is no part of what tells functions of Lua
// apart.
int CSamples::NumberOf(lua_State* L, lua_Debug* function)
{
    lua_getinfo(L, "Sn", function);
    const bool isChunk = *function->what == 'm';
    const std::string name = isChunk ? "main chunk" : Plain(function->name);
    // A chunk from a string has its text as its source.
    std::string key = std::to_string(function->linedefined) + " " +
                      Plain(*function->source == '@' ? function->source + 1
                                                     : function->short_src);
    if (*function->what == 'C')
        key += "\t" + name;
    const auto [known, isNew] =
        m_functions.emplace(key, static_cast<int>(m_functions.size()));
    if (isNew)
        m_text +=
            "F " + key + (*function->what == 'C' ? "" : "\t" + name) + "\n";
    return known->second;
}

void CSamples::AddStack(lua_State* L)
{
    lua_Debug function;
    for (int level = 0; lua_getstack(L, level, &function) != 0; ++level)
    {
        m_cut = m_stack.size() >= kDeepest;
        if (m_cut)
            return;
        m_stack.push_back(NumberOf(L, &function));
    }
}

// Writes a sample of the coroutine and of those that wait for it.
void CSamples::Add(lua_State* top)
{
    const std::chrono::nanoseconds now = ThreadCpuTime();
    if (getpid() != m_process)
        return; // a copy of the process, which has the same file
    m_text.clear();
    m_stack.clear();
    AddStack(top);
    // A coroutine that the table `coroutine` does not know may be on top.
    for (auto state = states.rbegin(); state != states.rend(); ++state)
        if (*state != top)
            AddStack(*state);
    m_text +=
        "S " + std::to_string((now - m_last).count()) + (m_cut ? " -" : " ");
    for (auto number = m_stack.rbegin(); number != m_stack.rend(); ++number)
        m_text += std::to_string(*number) + " ";
    m_text.back() = '\n';
    m_last = now;
    static_cast<void>(WriteWhole(m_file.Get(), m_text.data(), m_text.size()));
}

// The hook. It leaves errno and the application's own hook as they were.
void SampleCB(lua_State* L, lua_Debug* /*event*/)
{
    const int error = errno;
    s_sampling = true;
    const CHook before = s_before.state == L ? s_before : CHook();
    lua_sethook(L, before.function, before.mask, before.count);
    try
    {
        s_samples.Add(L);
    }
    catch (const std::bad_alloc&)
    {
        errno = ENOMEM; // the time goes to the next sample
    }
    s_sampling = false;
    errno = error;
}

// The handler of the signal, on the thread of the state.
extern "C" void SetSampleHookCB(int /*signal*/)
{
    lua_State* const L = s_running;
    if (L == nullptr || s_sampling)
        return;
    const CHook now{L, lua_gethook(L), lua_gethookmask(L), lua_gethookcount(L)};
    if (now.function == SampleCB && now.mask != 0)
        return; // set already
    if (now.function != SampleCB)
        s_before = now;
    lua_sethook(L, SampleCB, LUA_MASKCALL | LUA_MASKRET | LUA_MASKCOUNT, 1);
}

// --- Which coroutine runs --------------------------------------------------

// A coroutine is the running one as long as the object lives.
class CRunning
{
public:
    explicit CRunning(lua_State* L)
    {
        if (L != nullptr)
            s_samples.states.push_back(L);
        m_noted = L != nullptr;
        Update();
    }

    ~CRunning()
    {
        if (m_noted)
            s_samples.states.pop_back();
        Update();
    }

    CRunning(const CRunning&) = delete;
    CRunning& operator=(const CRunning&) = delete;

private:
    static void Update() { s_running = s_samples.states.back(); }

    bool m_noted;
};

// Lua's own functions, which those below stand in for.
lua_CFunction s_resume = nullptr;
lua_CFunction s_wrap = nullptr;
lua_CFunction s_resumeWrapped = nullptr;

int Resume(lua_State* L)
{
    const CRunning running(lua_tothread(L, 1));
    return s_resume(L);
}

// What coroutine.wrap returns; the coroutine is the first upvalue, as in Lua's
// own.
int ResumeWrapped(lua_State* L)
{
    const CRunning running(lua_tothread(L, lua_upvalueindex(1)));
    return s_resumeWrapped(L);
}

int Wrap(lua_State* L)
{
    const int count = s_wrap(L);
    s_resumeWrapped = lua_tocfunction(L, -1);
    lua_getupvalue(L, -1, 1);
    lua_pushcclosure(L, Guarded<ResumeWrapped>, 1);
    return count;
}

// Puts a function into the table on top of the stack, and returns the one
// before.
lua_CFunction Replace(lua_State* L, const char* name, lua_CFunction function)
{
    lua_getfield(L, -1, name);
    const lua_CFunction before = lua_tocfunction(L, -1);
    lua_pop(L, 1);
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
    return before;
}

void FollowCoroutines(lua_State* L)
{
    s_samples.states = {L};
    s_running = L;
    lua_getglobal(L, LUA_COLIBNAME);
    s_resume = Replace(L, "resume", Guarded<Resume>);
    s_wrap = Replace(L, "wrap", Guarded<Wrap>);
    lua_pop(L, 1);
}

void InstallHandler()
{
    struct sigaction action
    {
    };
    action.sa_handler = SetSampleHookCB;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPROF, &action, nullptr);
}

} // namespace

bool StartLuaProfile(lua_State* L,
                     const std::string& path,
                     std::chrono::nanoseconds period,
                     std::string& error)
{
    if (!s_samples.Open(path))
        return FailBySystem(error, path);
    FollowCoroutines(L);
    InstallHandler();
    return StartCpuTimer(period) || FailBySystem(error, "a timer of CPU time");
}

} // namespace KzaCore
