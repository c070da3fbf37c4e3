// SPDX-License-Identifier: Apache-2.0
//
// From the death of a worker to the first line of its successor's Lua.
//
// Beside the agent: a bare parent that forks a child with the framework
// initialised and runs Lua, and supervisors that start the plain interpreter.
// nginx has no Lua: its new worker is there when it answers a request.
//
// Where a supervisor waits by its own rules before it starts a child again,
// that wait is subtracted. Each supervisor has been idle for a second and more
// before its child dies, as it would be in service.

#include "Bench.h"
#include "Peers.h"
#include "support/Service.h"

#include <lua.hpp>
#include <wx/init.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <functional>
#include <thread>

#include <sys/wait.h>

using namespace Bench;
using TestSupport::CService;

namespace
{

using std::chrono::milliseconds;

constexpr int kDeaths = 30;

// The agent's first back-off. The bare parent waits as long.
constexpr milliseconds kBackOff{1000};

// runsv waits when its child was there for less than a second.
constexpr milliseconds kLongLife{1100};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A parent that does nothing but wait and fork when its child has died. Like
// each of the agents, one loses its child once.
[[noreturn]] void RunBareParent(const std::string& script)
{
    const wxInitializer framework;
    for (;;)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            lua_State* const L = luaL_newstate();
            luaL_openlibs(L);
            _exit(luaL_dofile(L, script.c_str()));
        }
        waitpid(child, nullptr, 0);
        std::this_thread::sleep_for(kBackOff);
    }
}

class CBareParent
{
public:
    CBareParent() : m_script(m_firstLine.Script()), m_pid(fork())
    {
        if (m_pid == 0)
            RunBareParent(m_script);
        (void)m_firstLine.Wait();
    }

    ~CBareParent()
    {
        const pid_t last = ChildOf(m_pid);
        kill(m_pid, SIGKILL);
        kill(last, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }

    CBareParent(const CBareParent&) = delete;
    CBareParent& operator=(const CBareParent&) = delete;

    void KillChild()
    {
        const pid_t child = ChildOf(m_pid);
        m_death = Clock::now();
        kill(child, SIGKILL);
    }

    [[nodiscard]] double Wait() const
    {
        return Milliseconds(m_firstLine.Wait() - m_death - kBackOff);
    }

private:
    CFirstLine m_firstLine;
    std::string m_script;
    pid_t m_pid;
    Clock::time_point m_death;
};

// One agent that lost its worker for the first time: its back-off is the
// shortest that there is.
class CAgent
{
public:
    CAgent()
    {
        m_service.SetModule(m_firstLine.LineAndSleep());
        if (m_service.Start().status != 0)
            GiveUp("the agent does not start");
        (void)m_firstLine.Wait();
    }

    void KillWorker()
    {
        // The worker is found as the bare parent's child is. A look into the
        // worker's own entry in /proc would leave the system something to clean
        // up after it.
        const pid_t worker = ChildOf(m_service.PidFromFile());
        m_death = Clock::now();
        kill(worker, SIGKILL);
    }

    [[nodiscard]] double Wait() const
    {
        return Milliseconds(m_firstLine.Wait() - m_death - kBackOff);
    }

private:
    CFirstLine m_firstLine;
    CService m_service;
    Clock::time_point m_death;
};

struct CMedians
{
    double ours;
    double bare;
};

// Both by turns, so that other work of the machine delays them alike, and far
// enough apart that none of them is at work while another one starts its child.
CMedians CompareWithABareParent()
{
    constexpr int kInFlight = 3;
    constexpr milliseconds kApart{300};
    static_assert(kInFlight * kApart < kBackOff);

    std::deque<CBareParent> parents(kDeaths);
    std::deque<CAgent> agents(kDeaths);
    std::this_thread::sleep_for(kLongLife);
    std::vector<double> ours;
    std::vector<double> theirs;
    auto turn = Clock::now();
    for (int i = 0; i < 2 * kDeaths + kInFlight; ++i)
    {
        if (i < 2 * kDeaths)
            i % 2 == 0 ? agents[i / 2].KillWorker()
                       : parents[i / 2].KillChild();
        const int due = i - kInFlight;
        if (due >= 0 && due % 2 == 0)
            ours.push_back(agents[due / 2].Wait());
        else if (due >= 0)
            theirs.push_back(parents[due / 2].Wait());
        turn += kApart;
        std::this_thread::sleep_until(turn);
    }
    return {Median(ours), Median(theirs)};
}

double TimeUnder(const Words& words,
                 const CFirstLine& firstLine,
                 milliseconds ownWait)
{
    constexpr int kFewer = 5;
    const CProcess peer(words);
    std::vector<double> times;
    (void)firstLine.Wait();
    for (int i = 0; i < kFewer; ++i)
    {
        std::this_thread::sleep_for(kLongLife);
        const pid_t child = ChildOf(peer.Pid());
        const Clock::time_point death = Clock::now();
        kill(child, SIGKILL);
        times.push_back(Milliseconds(firstLine.Wait() - death - ownWait));
    }
    const pid_t last = ChildOf(peer.Pid());
    peer.Signal(SIGKILL);
    kill(last, SIGKILL);
    return Median(times);
}

void Report(const char* peer, double ours, double theirs, const char* bound)
{
    Row(std::string("worker's death to its Lua, beside ") + peer, ours, theirs,
        "ms", bound);
}

} // namespace

int main()
{
    const CMedians medians = CompareWithABareParent();
    const double own = medians.ours;
    Report("a bare fork", own, medians.bare, "<=2");

    const CFirstLine firstLine;
    const std::string script = firstLine.Script();
    const struct
    {
        const char* name;
        std::function<Words(const CTempDir&)> words;

        // s6-supervise waits a second after each death; supervisord notices
        // one when its loop comes round, once a second.
        milliseconds ownWait;
    } peers[] = {
        {"nginx with Lua",
         [&](const CTempDir& dir) { return Nginx(dir, firstLine.Line()); },
         milliseconds(0)},
        {"runsv",
         [&](const CTempDir& dir)
         { return OverScript(dir, "/usr/bin/runsv", script); },
         milliseconds(0)},
        {"s6-supervise",
         [&](const CTempDir& dir)
         { return OverScript(dir, "/usr/bin/s6-supervise", script); },
         milliseconds(1000)},
        {"supervisord",
         [&](const CTempDir& dir) { return Supervisord(dir, script); },
         milliseconds(1000)},
    };
    for (const auto& peer : peers)
    {
        const CTempDir dir;
        Report(peer.name, own,
               TimeUnder(peer.words(dir), firstLine, peer.ownWait), "<=1");
    }
}
