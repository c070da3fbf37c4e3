// SPDX-License-Identifier: Apache-2.0

#include "process/Program.h"

#include "base/Descriptor.h"
#include "base/NewDescriptor.h"
#include "process/Spawn.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// How often to check whether the program has ended, while a process that it
// started may keep its output open.
constexpr int kLookAfterMs = 50;

// Reads the program's output until no process has its writing end open, or the
// program has ended and there is nothing more to read.
//
// \return the program's wait status, -1 with errno set.
int Collect(int fd, pid_t pid, std::string& output)
{
    bool ended = false;
    int status = 0;
    std::array<char, 4096> buffer{};
    for (;;)
    {
        pollfd look{fd, POLLIN, 0};
        const int ready = poll(&look, 1, ended ? 0 : kLookAfterMs);
        if (ready > 0)
        {
            const ssize_t count = read(fd, buffer.data(), buffer.size());
            if (count > 0)
                output.append(buffer.data(), static_cast<size_t>(count));
            else if (count == 0 || errno != EINTR)
                return ended ? status : CSpawn::WaitFor(pid);
        }
        else if (ended)
            return status;
        else if (ready == 0)
        {
            const pid_t reaped = waitpid(pid, &status, WNOHANG);
            if (reaped == -1)
                return -1;
            ended = reaped == pid;
        }
    }
}

} // namespace

int RunProgram(const std::vector<std::string>& words, std::string& output)
{
    std::array<int, 2> ends{};
    if (!OpenPipe(ends))
        return -1;
    const CDescriptor readEnd(ends[0]);
    CDescriptor writeEnd(ends[1]);

    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);

    CSpawn spawn;
    spawn.Redirect(writeEnd.Get(), STDOUT_FILENO);
    spawn.Redirect(writeEnd.Get(), STDERR_FILENO);
    spawn.CloseFrom(STDERR_FILENO + 1);
    pid_t pid = 0;
    const int failure = spawn.Start(argv.data(), pid);
    if (failure != 0)
    {
        errno = failure;
        return -1;
    }
    writeEnd.Close();
    return Collect(readEnd.Get(), pid, output);
}

} // namespace KzaCore
