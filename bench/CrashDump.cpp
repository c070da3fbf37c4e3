// SPDX-License-Identifier: Apache-2.0
//
// How large is the dump of a worker, and how long does the crash take from the
// signal to the death of the process?
//
// The peer is the system's own core file of the same process: SIGQUIT makes
// one, and has no handler in the agent.

#include "Bench.h"

#include "kza_core/CrashHandler.h"

#include <wx/string.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

constexpr int kTurns = 5;
constexpr std::size_t kFullSize = 500U << 20U;

const std::string g_directory = []
{
    char path[] = "/tmp/kza-bench-XXXXXX";
    return std::string(mkdtemp(path));
}();

// A worker in the middle of its life: script thread, Lua state, log.
void BecomeWorker(const std::string& stage)
{
    execl((stage + "/kz_agent").c_str(), "kz_agent", "--appname", "worker",
          "--workdir", g_directory.c_str(), "--lua_path",
          (g_directory + "/?.lua").c_str(), nullptr);
    _exit(127);
}

// A process with much memory and nothing else.
void BecomeLarge()
{
    KzaCore::InitCrashHandler(
        wxString::FromUTF8(g_directory + "/diag/worker.mdmp"), wxS("worker"),
        true);
    auto* memory = static_cast<char*>(malloc(kFullSize));
    std::memset(memory, 0x5a, kFullSize);
    Bench::Keep(memory);
    puts("ready");
    fflush(stdout);
    for (;;)
        pause();
}

// Starts a process, waits until it says so, sends the signal, and returns the
// seconds until it has died of it.
double SecondsToDie(const std::function<void()>& become, int signal)
{
    int ends[2];
    if (pipe(ends) != 0)
        exit(1);
    const pid_t child = fork();
    if (child == 0)
    {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        close(STDERR_FILENO);
        open("/dev/null", O_WRONLY);
        if (chdir(g_directory.c_str()) != 0)
            _exit(1);
        // A core file for the peer alone.
        const rlim_t limit = signal == SIGQUIT ? RLIM_INFINITY : 0;
        const rlimit core = {limit, limit};
        setrlimit(RLIMIT_CORE, &core);
        become();
    }
    close(ends[1]);
    char ready[16];
    if (read(ends[0], ready, sizeof(ready)) <= 0)
        exit(1);
    int status = 0;
    const double seconds = Bench::Seconds(
        [&]
        {
            kill(child, signal);
            waitpid(child, &status, 0);
        });
    close(ends[0]);
    if (!WIFSIGNALED(status) || WTERMSIG(status) != signal)
    {
        std::printf("ended with status %d instead of signal %d\n", status,
                    signal);
        exit(1);
    }
    return seconds;
}

struct CFigures
{
    double seconds = 1e9;
    double bytes = 0;
};

CFigures BestDeath(const std::function<void()>& become, int signal, int turns)
{
    CFigures best;
    for (int i = 0; i < turns; i++)
    {
        best.seconds = std::min(best.seconds, SecondsToDie(become, signal));
        for (const auto& entry : fs::directory_iterator(g_directory))
            if (entry.path().filename().string().rfind("core", 0) == 0)
            {
                best.bytes = static_cast<double>(entry.file_size());
                fs::remove(entry);
            }
    }
    if (signal != SIGQUIT)
        best.bytes = static_cast<double>(
            fs::file_size(g_directory + "/diag/worker.mdmp"));
    return best;
}

void CompareWorkers(const std::string& stage)
{
    std::FILE* script = std::fopen((g_directory + "/worker.lua").c_str(), "w");
    std::fputs("return { main = function() print('ready') "
               "io.stdout:flush() dom:Sleep(600000) end }",
               script);
    std::fclose(script);
    const auto become = [&stage] { BecomeWorker(stage); };
    const CFigures ours = BestDeath(become, SIGSEGV, kTurns);
    const CFigures peer = BestDeath(become, SIGQUIT, kTurns);
    Bench::Row("crash of a worker, signal to death (peer: core file)",
               ours.seconds * 1e3, peer.seconds * 1e3, "ms", "ours<=200");
    Bench::Row("dump of a worker (peer: core file)", ours.bytes / (1 << 20),
               peer.bytes / (1 << 20), "MiB", "ours<=2");
}

void CompareFullDumps()
{
    const CFigures ours = BestDeath(BecomeLarge, SIGSEGV, 2);
    const CFigures peer = BestDeath(BecomeLarge, SIGQUIT, 2);
    Bench::Row("full dump of 500 MiB, signal to death (peer: core file)",
               ours.seconds * 1e3, peer.seconds * 1e3, "ms", "");
}

} // namespace

int main()
{
    const char* stage = getenv("KZA_STAGE_DIR");
    if (stage == nullptr)
    {
        std::puts("KZA_STAGE_DIR is not set");
        return 1;
    }
    fs::create_directory(g_directory + "/diag");
    CompareWorkers(stage);
    CompareFullDumps();
    fs::remove_all(g_directory);
    return 0;
}
