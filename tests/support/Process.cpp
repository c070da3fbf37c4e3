// SPDX-License-Identifier: Apache-2.0

#include "support/Process.h"

#include "support/TempDir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace TestSupport
{

namespace
{

// A file without a name: a pipe would need a reader, and would block the
// program when the test is slow.
int AnonymousFile(const std::string& content = std::string())
{
    std::string name = "/tmp/kza-out-XXXXXX";
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("no temporary file");
    unlink(name.c_str());
    if (write(fd, content.data(), content.size()) !=
            static_cast<ssize_t>(content.size()) ||
        lseek(fd, 0, SEEK_SET) != 0)
        throw std::runtime_error("cannot fill a temporary file");
    return fd;
}

std::string ReadAll(int fd)
{
    std::string text;
    char buffer[65536];
    for (;;)
    {
        const ssize_t count =
            pread(fd, buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (count <= 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

[[noreturn]] void Die(const char* what)
{
    fprintf(stderr, "%s: %s\n", what, strerror(errno));
    _exit(126);
}

void WriteProcFile(const char* path, const std::string& text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.data(), text.size()) < 0)
        Die(path);
    close(fd);
}

[[noreturn]] void RunChild(const std::vector<std::string>& words,
                           const CProcessOptions& options,
                           int in,
                           int out,
                           int err)
{
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("TZ", "UTC", 1);
    for (const auto& variable : options.env)
        setenv(variable.first.c_str(), variable.second.c_str(), 1);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0)
        Die(options.cwd.c_str());
    if (options.inChild)
        options.inChild();

    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    Die(argv[0]);
}

bool MakeMountsPrivate()
{
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// The root of a chroot need not be a mount, and only mounts can be made
// private. The way from the old root to what is mounted over it is "/..".
void MountRootOverItself()
{
    const std::string cwd = std::filesystem::current_path();
    if (mount("/", "/", nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
        chdir("/..") != 0 || chroot(".") != 0 || chdir(cwd.c_str()) != 0)
        Die("mount --rbind / /");
}

} // namespace

bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

CProcess::CProcess(const std::vector<std::string>& words,
                   const CProcessOptions& options)
    : m_out(AnonymousFile()), m_err(AnonymousFile())
{
    const int in = AnonymousFile(options.input);
    fflush(nullptr);
    m_pid = fork();
    if (m_pid == 0)
        RunChild(words, options, in, m_out, m_err);
    close(in);
    if (m_pid < 0)
        throw std::runtime_error("cannot fork");
}

CProcess::~CProcess()
{
    if (!m_reaped && m_pid > 0)
    {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_out);
    close(m_err);
}

void CProcess::Signal(int signal) const
{
    if (!m_reaped)
        kill(m_pid, signal);
}

std::string CProcess::Out() const
{
    return ReadAll(m_out);
}

std::string CProcess::Err() const
{
    return ReadAll(m_err);
}

bool CProcess::HasEnded()
{
    if (!m_reaped)
        m_reaped = waitpid(m_pid, &m_waitStatus, WNOHANG) == m_pid;
    return m_reaped;
}

CProcessResult CProcess::Wait(std::chrono::milliseconds limit)
{
    if (!WaitUntil([this] { return HasEnded(); }, limit))
    {
        Signal(SIGKILL);
        waitpid(m_pid, &m_waitStatus, 0);
        m_reaped = true;
    }
    CProcessResult result;
    if (WIFEXITED(m_waitStatus))
        result.status = WEXITSTATUS(m_waitStatus);
    if (WIFSIGNALED(m_waitStatus))
        result.signal = WTERMSIG(m_waitStatus);
    result.out = Out();
    result.err = Err();
    return result;
}

CProcessResult Run(const std::vector<std::string>& words,
                   const CProcessOptions& options)
{
    return CProcess(words, options).Wait();
}

bool IsRunning(pid_t pid)
{
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && nameEnd + 2 < stat.size() &&
           stat[nameEnd + 2] != 'Z' && stat[nameEnd + 2] != 'X';
}

void EnterMountNamespace()
{
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (uid == 0)
    {
        if (unshare(CLONE_NEWNS) != 0)
            Die("unshare");
    }
    else
    {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            Die("unshare");
        WriteProcFile("/proc/self/setgroups", "deny");
        WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
        WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    }
    // What is mounted from here on stays in here.
    if (!MakeMountsPrivate())
    {
        MountRootOverItself();
        if (!MakeMountsPrivate())
            Die("mount --make-private");
    }
}

void MountTmpfs(const std::string& directory, const std::string& size)
{
    const std::string options = "mode=0755,size=" + size;
    if (mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
        Die(directory.c_str());
}

} // namespace TestSupport
