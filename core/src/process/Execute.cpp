// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Execute.h"

#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Error.h"
#include "process/Spawn.h"

#include <wx/string.h>
#include <wx/tokenzr.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// How often to look whether the program has ended while something that it
// started keeps its output open.
constexpr int kLookAfterMs = 50;

std::vector<std::string> Words(const wxString& program,
                               const wxString& arguments)
{
    std::vector<std::string> words{std::string(program.fn_str())};
    wxStringTokenizer tokens(arguments, " \t", wxTOKEN_STRTOK);
    while (tokens.HasMoreTokens())
        words.emplace_back(tokens.GetNextToken().fn_str());
    return words;
}

// Reads the program's output until nobody can write to it any more, or the
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

// Starts the program with its output in a pipe and sees it to its end.
//
// \return its wait status, -1 with errno set.
int Run(const std::vector<std::string>& words, std::string& output)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
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

} // namespace

bool Execute(const wxString& program,
             const wxString& arguments,
             wxString& output,
             unsigned long& result,
             wxString& error)
{
    std::string bytes;
    const int status = Run(Words(program, arguments), bytes);
    output = TextOfBytes(bytes);
    result = 0;
    error.clear();
    if (status == -1)
        error = TextOfBytes(SystemErrorText(errno));
    else if (WIFSIGNALED(status))
        error.Printf("killed by signal %d", WTERMSIG(status));
    else if (WEXITSTATUS(status) != 0)
    {
        result = static_cast<unsigned long>(WEXITSTATUS(status));
        error.Printf("exit status %lu", result);
    }
    return error.empty();
}

} // namespace KzaCore
