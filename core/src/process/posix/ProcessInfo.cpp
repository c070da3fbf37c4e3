// SPDX-License-Identifier: Apache-2.0
//
// Facts about processes from ps(1) as POSIX defines it. It does not give the
// executable's path, the current directory, the resident memory, the number of
// threads or the separate words of the command line.

#include "process/ProcessInfo.h"

#include "process/Program.h"

#include <ctime>
#include <sstream>

namespace KzaCore
{

namespace
{

constexpr char kPs[] = "/bin/ps";

// The output of ps; empty when it found nothing.
std::string Ps(const std::vector<std::string>& words)
{
    std::vector<std::string> all{kPs};
    all.insert(all.end(), words.begin(), words.end());
    std::string output;
    return RunProgram(all, output) == 0 ? output : std::string();
}

// "[[dd-]hh:]mm:ss" in seconds.
double Seconds(const std::string& text)
{
    double days = 0;
    std::string clock = text;
    const std::size_t dash = text.find('-');
    if (dash != std::string::npos)
    {
        days = std::stod("0" + text.substr(0, dash));
        clock = text.substr(dash + 1);
    }
    double seconds = 0;
    std::istringstream in(clock);
    for (std::string part; std::getline(in, part, ':');)
        seconds = seconds * 60 + std::stod("0" + part);
    return days * 86400 + seconds;
}

} // namespace

std::optional<CProcessInfo> InfoOfProcess(pid_t pid)
{
    std::istringstream in(Ps({"-o", "ppid=", "-o", "etime=", "-o", "time=",
                              "-o", "comm=", "-p", std::to_string(pid)}));
    CProcessInfo info;
    std::string elapsed;
    std::string cpu;
    if (!(in >> info.parent >> elapsed >> cpu >> info.name))
        return std::nullopt;
    info.started = static_cast<double>(time(nullptr)) - Seconds(elapsed);
    info.cpuSeconds = Seconds(cpu);
    return info;
}

std::vector<pid_t> ChildrenOfProcess(pid_t parent)
{
    std::istringstream in(Ps({"-A", "-o", "pid=", "-o", "ppid="}));
    std::vector<pid_t> children;
    pid_t pid = 0;
    pid_t its = 0;
    while (in >> pid >> its)
        if (its == parent)
            children.push_back(pid);
    return children;
}

std::vector<pid_t> ProcessesOf(const std::string&, const std::string&)
{
    return {};
}

} // namespace KzaCore
