// SPDX-License-Identifier: Apache-2.0
//
// What kzctl costs an operator, and how fast the control socket answers.

#include "Bench.h"
#include "Peers.h"
#include "e2e/control/Peer.h"
#include "support/Service.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include <spawn.h>
#include <sys/wait.h>

extern char** environ; // NOLINT: POSIX has no header for it

using namespace Bench;
using TestSupport::CPeer;
using TestSupport::CService;

namespace
{

namespace fs = std::filesystem;

constexpr char kWaits[] =
    "return { init = function() require('mainloop').wait()"
    " dom:Log('message', 'waits') end }";

// --- kzctl ------------------------------------------------------------------

// Milliseconds from the start of a program to its end; what it says is dropped.
double RunTime(const Words& words)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null",
                                     O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);

    pid_t pid = 0;
    int status = 0;
    const Clock::time_point start = Clock::now();
    if (posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ) != 0)
        GiveUp("cannot start " + words[0]);
    waitpid(pid, &status, 0);
    const double time = Milliseconds(Clock::now() - start);
    posix_spawn_file_actions_destroy(&files);
    if (WIFSIGNALED(status) || WEXITSTATUS(status) > 1)
        GiveUp(words[0] + " fails");
    return time;
}

// The shortest times of two programs that are run by turns.
CBest ShortestOf(int turns, const Words& ours, const Words& peer)
{
    CBest best = {1e9, 1e9};
    for (int i = 0; i < turns; ++i)
    {
        best.ours = std::min(best.ours, RunTime(ours));
        best.peer = std::min(best.peer, RunTime(peer));
    }
    return best;
}

// supervisord with a socket that supervisorctl asks.
std::string SupervisorFile(const CTempDir& dir, const std::string& script)
{
    const std::string socket = dir.File("socket");
    (void)Supervisord(dir, script);
    std::string path = dir.File("supervisord.conf");
    std::ofstream(path, std::ios::app)
        << "[unix_http_server]\nfile=" << socket
        << "\n[rpcinterface:supervisor]\nsupervisor.rpcinterface_factory="
           "supervisor.rpcinterface:make_main_rpcinterface\n"
           "[supervisorctl]\nserverurl=unix://"
        << socket << "\n";
    return path;
}

void CompareKzctl(const CService& service)
{
    const CTempDir dir;
    const CFirstLine firstLine;
    const std::string file = SupervisorFile(dir, firstLine.Script());
    const CProcess supervisord(
        PeerCommand("/usr/bin/supervisord", {"-c", file}));
    (void)firstLine.Wait();

    const std::string kzctl = service.Host().File("kzctl");
    const CBest status = ShortestOf(
        15, {kzctl, "status"},
        PeerCommand("/usr/bin/supervisorctl", {"-c", file, "status"}));
    Row("kzctl status, beside supervisorctl status", status.ours, status.peer,
        "ms", "ours<=25");
    const pid_t script = ChildOf(supervisord.Pid());
    supervisord.Signal(SIGKILL);
    kill(script, SIGKILL);

    const CBest get =
        ShortestOf(40, {kzctl, "get", "app.name"},
                   {kzctl, "--workdir", dir.Path(), "get", "app.name"});
    Row("kzctl get, what it takes beyond one that finds no socket",
        get.ours - get.peer, get.peer, "ms", "ours<=1");
}

// Where kzctl finds the service's pid file: in mounts that are made once, in a
// process of their own.
void CompareInMountsOf(const CService& service)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        service.Process().inChild();
        CompareKzctl(service);
        exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0)
        GiveUp("kzctl cannot be measured");
}

// --- The socket -------------------------------------------------------------

// Sends a request again and again without waiting, and counts what ends each
// answer. In requests a second.
double Pipeline(const CPeer& peer,
                const std::string& request,
                const std::string& end)
{
    constexpr int kRequests = 100'000;
    const Clock::time_point start = Clock::now();
    std::thread writer(
        [&]
        {
            std::string many;
            for (int i = 0; i < 100; ++i)
                many += request;
            for (int i = 0; i < kRequests / 100; ++i)
                peer.Send(many);
        });
    int answers = 0;
    std::string rest;
    while (answers < kRequests)
    {
        const std::string piece = peer.Bytes();
        if (piece.empty())
            GiveUp("the connection ends");
        rest += piece;
        std::size_t at = 0;
        for (std::size_t found = 0;
             (found = rest.find(end, at)) != std::string::npos;
             at = found + end.size())
            ++answers;
        rest.erase(0, at);
    }
    writer.join();
    return kRequests / (Milliseconds(Clock::now() - start) / 1000);
}

// Voluntary switches of all threads: how often one of them was woken.
double WakeUps(pid_t pid)
{
    double count = 0;
    for (const auto& task :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
    {
        std::ifstream file(task.path() / "status");
        for (std::string word; file >> word;)
            if (word == "voluntary_ctxt_switches:")
            {
                double switches = 0;
                file >> switches;
                count += switches;
            }
    }
    return count;
}

// A console that evaluates lines which come through a socket.
Words Tarantool(const CTempDir& dir)
{
    return PeerCommand("/usr/bin/tarantool",
                       {"-e", "k = 'kz_agent' require('console').listen('" +
                                  dir.File("socket") + "')"});
}

void CompareSockets(const CService& service)
{
    const CTempDir dir;
    const CProcess tarantool(Tarantool(dir));
    if (!TestSupport::WaitUntil(
            [&] { return CPeer(dir.File("socket")).IsConnected(); }))
        GiveUp("no console");

    using std::chrono::seconds;
    const pid_t worker = service.Worker();
    std::this_thread::sleep_for(seconds(2));
    const double ours = WakeUps(worker);
    const double theirs = WakeUps(tarantool.Pid());
    std::this_thread::sleep_for(seconds(10));
    Row("worker's wake-ups in 10 s while it listens, beside tarantool",
        WakeUps(worker) - ours, WakeUps(tarantool.Pid()) - theirs, "",
        "ours<=0");

    CBest best = {0, 0};
    for (int i = 0; i < 3; ++i)
    {
        const CPeer peer(SocketOf(service));
        const CPeer console(dir.File("socket"));
        best.ours = std::max(
            best.ours,
            Pipeline(peer, "{\"do\":\"get\",\"key\":\"app.name\"}\n", "\n"));
        best.peer =
            std::max(best.peer, Pipeline(console, "return k\n", "\n...\n"));
    }
    Row("pipelined requests a second, beside tarantool's console", best.ours,
        best.peer, "/s", "ours>=20000");
}

void CopyTool(const CService& service)
{
    const char* const stage = getenv("KZA_STAGE_DIR");
    if (stage == nullptr)
        GiveUp("KZA_STAGE_DIR is not set: start benchmarks by bench/run");
    for (const char* const name : {"kzctl", "kza_core"})
        fs::copy(fs::path(stage) / name, service.Host().File(name),
                 fs::copy_options::recursive);
    // The service's application is its module, not the example.
    fs::remove(service.Host().File("kza_core/kz_agent.kze"));
}

} // namespace

int main()
{
    const CService service;
    service.SetModule(kWaits);
    CopyTool(service);
    if (!service.StartUntil("waits", TestSupport::kSwitchedOn))
        GiveUp("the agent does not start");
    CompareInMountsOf(service);
    CompareSockets(service);
}
