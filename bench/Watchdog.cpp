// SPDX-License-Identifier: Apache-2.0
//
// What the watchdog costs while it waits, and how soon the service is gone
// after a stop request.

#include "Bench.h"
#include "Peers.h"
#include "support/Service.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <thread>

#include <sys/syscall.h>
#include <sys/wait.h>

using namespace Bench;
using TestSupport::CService;

namespace
{

constexpr std::chrono::seconds kMinute{60};

constexpr char kEmptyService[] =
    "return { init = function() require('mainloop').wait()"
    " dom:Log('message', 'waits') end, shutdown = function() end }";

// A number after a word in a file of /proc.
long NumberIn(pid_t pid, const std::string& name, const std::string& word)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/" + name);
    for (std::string text; file >> text;)
        if (text == word)
        {
            long number = 0;
            file >> number;
            return number;
        }
    GiveUp("no " + word + " in " + name);
}

double PrivateDirtyKiB(pid_t pid)
{
    return static_cast<double>(NumberIn(pid, "smaps_rollup", "Private_Dirty:"));
}

// How often the process was woken and how long it computed, so far.
struct CActivity
{
    explicit CActivity(pid_t pid)
        : wakeUps(static_cast<double>(
              NumberIn(pid, "status", "voluntary_ctxt_switches:")))
    {
        std::ifstream("/proc/" + std::to_string(pid) + "/schedstat") >>
            nanoseconds;
    }
    double wakeUps;
    double nanoseconds = 0;
};

void CompareActivity(const CActivity& ours,
                     const CActivity& oursLater,
                     const CActivity& theirs,
                     const CActivity& theirsLater)
{
    Row("watchdog's wake-ups in a minute, beside monit",
        oursLater.wakeUps - ours.wakeUps, theirsLater.wakeUps - theirs.wakeUps,
        "", "ours<=0");
    Row("watchdog's CPU time in a minute, beside monit",
        oursLater.nanoseconds - ours.nanoseconds,
        theirsLater.nanoseconds - theirs.nanoseconds, "ns", "ours<=0");
}

// Milliseconds from SIGTERM until the process has ended.
double StopTime(pid_t pid)
{
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    pollfd look{fd, POLLIN, 0};
    const Clock::time_point start = Clock::now();
    kill(pid, SIGTERM);
    if (poll(&look, 1, 60000) != 1)
        GiveUp("it does not stop");
    const double time = Milliseconds(Clock::now() - start);
    close(fd);
    return time;
}

void CompareStops()
{
    constexpr int kTimes = 15;
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int i = 0; i < kTimes; ++i)
    {
        const CService service;
        service.SetModule(kEmptyService);
        if (!service.StartUntil("waits"))
            GiveUp("the agent does not start");
        ours.push_back(StopTime(service.PidFromFile()));

        const CTempDir dir;
        const CFirstLine firstLine;
        const CProcess nginx(Nginx(dir, firstLine.Line()));
        (void)firstLine.Wait();
        theirs.push_back(StopTime(nginx.Pid()));
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    Row("stop request until the service is gone, beside nginx",
        ours[kTimes / 2], theirs[kTimes / 2], "ms", "ours<=10");
}

} // namespace

int main()
{
    const CService service;
    service.SetModule(kEmptyService);
    if (!service.StartUntil("waits"))
        GiveUp("the agent does not start");
    const pid_t watchdog = service.PidFromFile();

    const CTempDir nginxDir;
    const CFirstLine firstLine;
    const CProcess nginx(Nginx(nginxDir, firstLine.Line()));
    (void)firstLine.Wait();
    const CTempDir supervisorDir;
    const CProcess supervisord(Supervisord(supervisorDir, firstLine.Script()));
    (void)firstLine.Wait();
    const CTempDir monitDir;
    const CProcess monit(Monit(monitDir, getpid()));

    // By then the agent and its peers have started and do what they do all day.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const CActivity ours(watchdog);
    const CActivity theirs(monit.Pid());
    std::this_thread::sleep_for(kMinute);
    CompareActivity(ours, CActivity(watchdog), theirs, CActivity(monit.Pid()));

    const double memory = PrivateDirtyKiB(watchdog);
    const char question[] = "watchdog's private dirty memory, beside ";
    Row(std::string(question) + "nginx", memory, PrivateDirtyKiB(nginx.Pid()),
        "KiB", "ours<=400");
    Row(std::string(question) + "monit", memory, PrivateDirtyKiB(monit.Pid()),
        "KiB", "<=1");
    Row(std::string(question) + "supervisord", memory,
        PrivateDirtyKiB(supervisord.Pid()), "KiB", "<=1");
    const pid_t lastLua = ChildOf(supervisord.Pid());
    const pid_t lastNginx = ChildOf(nginx.Pid());
    supervisord.Signal(SIGKILL);
    nginx.Signal(SIGKILL);
    kill(lastLua, SIGKILL);
    kill(lastNginx, SIGKILL);

    CompareStops();
}
