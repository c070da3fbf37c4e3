// SPDX-License-Identifier: Apache-2.0
//
// How long from exec to the first line on standard output?
//
//   StartTimer RUNS -- COMMAND... [-- COMMAND...]...
//       runs the commands by turns and prints for each, in milliseconds and
//       a line of its own, the shortest time and the median
//   StartTimer steps -- COMMAND...
//       runs it once and prints each line of standard error with the time at
//       which it came
//
// A command is killed once its line is there.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT: POSIX has no header for it

namespace
{

using Clock = std::chrono::steady_clock;
using Command = std::vector<char*>;

[[noreturn]] void Die(const char* what)
{
    std::fprintf(stderr, "StartTimer: %s\n", what);
    std::exit(1);
}

double Milliseconds(Clock::time_point from)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - from)
        .count();
}

std::vector<Command> Commands(int argc, char** argv)
{
    std::vector<Command> commands;
    for (int i = 2; i < argc; ++i)
    {
        if (std::strcmp(argv[i], "--") == 0)
            commands.emplace_back();
        else if (commands.empty())
            Die("a command follows --");
        else
            commands.back().push_back(argv[i]);
    }
    for (Command& command : commands)
        command.push_back(nullptr);
    return commands;
}

struct CChild
{
    pid_t pid = -1;
    int stream = -1; // the read end
};

// With the given stream of the child in a pipe and the other two in /dev/null.
CChild Start(const Command& command, int stream)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        Die("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int i = 0; i <= STDERR_FILENO; ++i)
        if (i != stream)
            posix_spawn_file_actions_addopen(&actions, i, "/dev/null", O_RDWR,
                                             0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], stream);
    CChild child;
    if (posix_spawn(&child.pid, command[0], &actions, nullptr, command.data(),
                    environ) != 0)
        Die(command[0]);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    child.stream = ends[0];
    return child;
}

void End(const CChild& child)
{
    kill(child.pid, SIGKILL);
    waitpid(child.pid, nullptr, 0);
    close(child.stream);
}

double TimeToFirstLine(const Command& command)
{
    const auto start = Clock::now();
    const CChild child = Start(command, STDOUT_FILENO);
    char text[4096];
    for (;;)
    {
        const ssize_t count = read(child.stream, text, sizeof text);
        if (count <= 0)
            Die((std::string(command[0]) + " printed no line").c_str());
        if (std::memchr(text, '\n', static_cast<std::size_t>(count)) != nullptr)
            break;
    }
    const double time = Milliseconds(start);
    End(child);
    return time;
}

void PrintTimes(int runs, const std::vector<Command>& commands)
{
    std::vector<std::vector<double>> times(commands.size());
    for (int run = 0; run < runs; ++run)
        for (std::size_t i = 0; i < commands.size(); ++i)
            times[i].push_back(TimeToFirstLine(commands[i]));
    for (std::vector<double>& one : times)
    {
        std::sort(one.begin(), one.end());
        std::printf("%.2f %.2f\n", one.front(), one[one.size() / 2]);
    }
}

void PrintSteps(const Command& command)
{
    const auto start = Clock::now();
    const CChild child = Start(command, STDERR_FILENO);
    std::string line;
    double time = 0;
    for (char c = 0; read(child.stream, &c, 1) == 1;)
    {
        if (line.empty())
            time = Milliseconds(start);
        if (c != '\n')
        {
            line += c;
            continue;
        }
        std::printf("%.2f\t%s\n", time, line.c_str());
        line.clear();
    }
    End(child);
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<Command> commands = Commands(argc, argv);
    if (commands.empty())
        Die("no command");
    if (std::strcmp(argv[1], "steps") == 0)
        PrintSteps(commands[0]);
    else
        PrintTimes(std::atoi(argv[1]), commands);
    return 0;
}
