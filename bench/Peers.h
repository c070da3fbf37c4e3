// SPDX-License-Identifier: Apache-2.0
//
// The supervisors beside which the agent stands, and how a benchmark notices
// that a worker runs.

#pragma once

#include "support/Process.h"
#include "support/TempDir.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Bench
{

using Clock = std::chrono::steady_clock;
using TestSupport::CProcess;
using TestSupport::CTempDir;

[[noreturn]] inline void GiveUp(const std::string& what)
{
    fprintf(stderr, "%s\n", what.c_str());
    exit(1);
}

inline double Milliseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

/// A pipe with a name, into which a worker's first line of Lua writes.
class CFirstLine
{
public:
    CFirstLine() : m_path(m_dir.File("pipe"))
    {
        mkfifo(m_path.c_str(), 0600);
        m_fd = open(m_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    ~CFirstLine() { close(m_fd); }

    CFirstLine(const CFirstLine&) = delete;
    CFirstLine& operator=(const CFirstLine&) = delete;

    /// The line of Lua.
    [[nodiscard]] std::string Line() const
    {
        return "local pipe = io.open('" + m_path +
               "', 'w') pipe:write('x') pipe:close()\n";
    }

    /// The line, after which the worker sleeps: a worker that went on could
    /// keep the processor from the benchmark, which waits for the line.
    [[nodiscard]] std::string LineAndSleep() const
    {
        const std::string other = m_dir.File("nobody-writes");
        mkfifo(other.c_str(), 0600);
        return Line() + "io.open('" + other + "'):read('*a')\n";
    }

    /// A script of both.
    [[nodiscard]] std::string Script() const
    {
        std::string path = m_dir.File("script.lua");
        TestSupport::WriteFile(path, "#!/usr/bin/lua5.2\n" + LineAndSleep());
        chmod(path.c_str(), 0700);
        return path;
    }

    /// When the line has run.
    [[nodiscard]] Clock::time_point Wait() const
    {
        pollfd look{m_fd, POLLIN, 0};
        char byte = 0;
        if (poll(&look, 1, 60000) != 1)
            GiveUp("no worker came");
        const Clock::time_point now = Clock::now();
        if (read(m_fd, &byte, 1) != 1)
            GiveUp("cannot read the pipe");
        return now;
    }

private:
    CTempDir m_dir;
    std::string m_path;
    int m_fd = -1;
};

/// The first child of a process, waited for.
inline pid_t ChildOf(pid_t parent)
{
    const std::string path = "/proc/" + std::to_string(parent) + "/task/" +
                             std::to_string(parent) + "/children";
    pid_t child = 0;
    TestSupport::WaitUntil(
        [&]
        {
            child = static_cast<pid_t>(
                strtol(TestSupport::ReadFile(path).c_str(), nullptr, 10));
            return child != 0;
        });
    return child;
}

// How the peers are started, all in the foreground. What they read is written
// into the directory.

using Words = std::vector<std::string>;

/// Where the peers are unpacked; the runner of the benchmarks says so.
inline std::string PeerDirectory()
{
    const char* const build = getenv("KZA_BUILD_DIR");
    if (build == nullptr)
        GiveUp("KZA_BUILD_DIR is not set: start benchmarks by bench/run");
    return std::string(build) + "/bench/peers";
}

/// The command of a peer, which finds its libraries where it was unpacked.
inline Words PeerCommand(const std::string& program, const Words& arguments)
{
    const std::string peers = PeerDirectory();
    Words words = {"/usr/bin/env", "LD_LIBRARY_PATH=" + peers + "/libraries",
                   "PYTHONPATH=" + peers + "/usr/lib/python3/dist-packages"};
    words.push_back(peers + program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

/// runsv or s6-supervise over a script.
inline Words OverScript(const CTempDir& dir,
                        const std::string& program,
                        const std::string& script)
{
    TestSupport::WriteFile(dir.File("run"), TestSupport::ReadFile(script));
    chmod(dir.File("run").c_str(), 0700);
    return PeerCommand(program, {dir.Path()});
}

inline Words Supervisord(const CTempDir& dir, const std::string& script)
{
    TestSupport::WriteFile(
        dir.File("supervisord.conf"),
        "[supervisord]\nnodaemon=true\nuser=root\nlogfile=" + dir.File("log") +
            "\npidfile=" + dir.File("pid") + "\n[program:worker]\ncommand=" +
            script + "\nautorestart=true\nstartsecs=0\n");
    return PeerCommand("/usr/bin/supervisord",
                       {"-c", dir.File("supervisord.conf")});
}

/// nginx with one worker, which runs the line of Lua when it starts.
inline Words Nginx(const CTempDir& dir, const std::string& code)
{
    const std::string modules = PeerDirectory() + "/usr/lib/nginx/modules/";
    std::string paths;
    for (const char* const kind :
         {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        paths += std::string(kind) + "_temp_path " + dir.File(kind) + ";\n";
    TestSupport::WriteFile(
        dir.File("nginx.conf"),
        "load_module " + modules + "ndk_http_module.so;\nload_module " +
            modules + "ngx_http_lua_module.so;\n" +
            "daemon off;\nworker_processes 1;\nuser root;\npid " +
            dir.File("pid") + ";\nerror_log " + dir.File("log") +
            ";\nevents {}\nhttp {\naccess_log off;\n" + paths +
            "lua_package_path '" + PeerDirectory() +
            "/usr/share/lua/5.1/?.lua;;';\ninit_worker_by_lua_block { " + code +
            " }\n}\n");
    return PeerCommand("/usr/sbin/nginx",
                       {"-e", dir.File("log"), "-c", dir.File("nginx.conf")});
}

/// monit, which looks after one process twice a minute.
inline Words Monit(const CTempDir& dir, pid_t process)
{
    TestSupport::WriteFile(dir.File("looked-after.pid"),
                           std::to_string(process) + "\n");
    TestSupport::WriteFile(dir.File("monitrc"),
                           "set daemon 30\nset log " + dir.File("log") +
                               "\nset pidfile " + dir.File("pid") +
                               "\nset idfile " + dir.File("id") +
                               "\nset statefile " + dir.File("state") +
                               "\ncheck process worker with pidfile " +
                               dir.File("looked-after.pid") + "\n");
    chmod(dir.File("monitrc").c_str(), 0600);
    return PeerCommand("/usr/bin/monit", {"-I", "-c", dir.File("monitrc")});
}

} // namespace Bench
