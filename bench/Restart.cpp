// SPDX-License-Identifier: Apache-2.0
//
// From the death of a worker to the first line of its successor's Lua.
//
// The agent's stated back-off is taken off. Beside it: a bare parent that
// forks a child with the framework initialised and runs Lua, and supervisors
// that start the plain interpreter. nginx has no Lua: its new worker is there
// when it answers a request.

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

constexpr int kDeaths = 15;
constexpr milliseconds kBackOff{1000};

// Supervisors wait when their child was there for less than a second.
constexpr milliseconds kLongLife{1100};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A parent that does nothing but fork when its child has died.
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
    }
}

std::vector<double> DeathsOfBareChildren()
{
    const CFirstLine firstLine;
    const std::string script = firstLine.Script();
    const pid_t parent = fork();
    if (parent == 0)
        RunBareParent(script);
    std::vector<double> times;
    (void)firstLine.Wait();
    for (int i = 0; i < kDeaths; ++i)
    {
        std::this_thread::sleep_for(milliseconds(20));
        const Clock::time_point death = Clock::now();
        kill(ChildOf(parent), SIGKILL);
        times.push_back(Milliseconds(firstLine.Wait() - death));
    }
    const pid_t last = ChildOf(parent);
    kill(parent, SIGKILL);
    kill(last, SIGKILL);
    waitpid(parent, nullptr, 0);
    return times;
}

// One agent that lost its worker for the first time: its back-off is the
// shortest that there is.
class CAgent
{
public:
    CAgent()
    {
        m_service.SetModule(m_firstLine.Code() + "return {}");
        if (m_service.Start().status != 0)
            GiveUp("the agent does not start");
        (void)m_firstLine.Wait();
    }

    void KillWorker()
    {
        const pid_t worker = m_service.Worker();
        m_death = Clock::now();
        kill(worker, SIGKILL);
    }

    [[nodiscard]] double Wait() const
    {
        return Milliseconds(m_firstLine.Wait() - m_death - kBackOff);
    }

private:
    CFirstLine m_firstLine;
    CService m_service{"bench"};
    Clock::time_point m_death;
};

// The deaths follow each other closely, each new worker comes a second later.
std::vector<double> DeathsOfWorkers()
{
    std::deque<CAgent> agents(kDeaths);
    std::this_thread::sleep_for(milliseconds(200));
    for (CAgent& agent : agents)
    {
        agent.KillWorker();
        std::this_thread::sleep_for(milliseconds(40));
    }
    std::vector<double> times;
    for (const CAgent& agent : agents)
        times.push_back(agent.Wait());
    return times;
}

std::vector<double> DeathsUnder(const Words& words, const CFirstLine& firstLine)
{
    constexpr int kFewer = 7;
    const CProcess peer(words);
    std::vector<double> times;
    (void)firstLine.Wait();
    for (int i = 0; i < kFewer; ++i)
    {
        std::this_thread::sleep_for(kLongLife);
        const pid_t child = ChildOf(peer.Pid());
        const Clock::time_point death = Clock::now();
        kill(child, SIGKILL);
        times.push_back(Milliseconds(firstLine.Wait() - death));
    }
    const pid_t last = ChildOf(peer.Pid());
    peer.Signal(SIGKILL);
    kill(last, SIGKILL);
    return times;
}

std::vector<double> DeathsUnderNginx()
{
    const CTempDir dir;
    const int port = FreePort();
    const CProcess nginx(Nginx(dir, port));
    TestSupport::WaitUntil([port] { return Fetch(port); });
    std::vector<double> times;
    for (int i = 0; i < kDeaths; ++i)
    {
        std::this_thread::sleep_for(milliseconds(50));
        const pid_t child = ChildOf(nginx.Pid());
        const Clock::time_point death = Clock::now();
        kill(child, SIGKILL);
        while (!Fetch(port))
            continue;
        times.push_back(Milliseconds(Clock::now() - death));
    }
    const pid_t last = ChildOf(nginx.Pid());
    nginx.Signal(SIGKILL);
    kill(last, SIGKILL);
    return times;
}

void Report(const char* peer, double ours, double theirs, const char* bound)
{
    Row(std::string("worker's death to its Lua, beside ") + peer, ours, theirs,
        "ms", bound);
}

} // namespace

int main()
{
    // By turns, so that what else the machine does falls on both.
    std::vector<double> bare = DeathsOfBareChildren();
    std::vector<double> ours = DeathsOfWorkers();
    for (const double time : DeathsOfBareChildren())
        bare.push_back(time);
    for (const double time : DeathsOfWorkers())
        ours.push_back(time);
    const double own = Median(ours);
    Report("a bare fork", own, Median(bare), "<=1.5");
    Report("nginx", own, Median(DeathsUnderNginx()), "<=1");

    const CFirstLine firstLine;
    const std::string script = firstLine.Script();
    const struct
    {
        const char* name;
        std::function<Words(const CTempDir&)> words;
    } peers[] = {
        {"runsv", [&](const CTempDir& dir)
         { return OverScript(dir, "/usr/bin/runsv", script); }},
        {"s6-supervise", [&](const CTempDir& dir)
         { return OverScript(dir, "/usr/bin/s6-supervise", script); }},
        {"supervisord",
         [&](const CTempDir& dir) { return Supervisord(dir, script); }},
    };
    for (const auto& peer : peers)
    {
        const CTempDir dir;
        Report(peer.name, own, Median(DeathsUnder(peer.words(dir), firstLine)),
               "<=1");
    }
}
