// SPDX-License-Identifier: Apache-2.0

#include "support/Service.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace TestSupport
{

namespace
{

constexpr char kFakeTime[] =
    "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1";

std::vector<pid_t> AllProcesses()
{
    std::vector<pid_t> all;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc"))
        if (const pid_t pid = PidIn(entry.path().filename()))
            all.push_back(pid);
    return all;
}

void BindOver(const std::string& from, const char* to)
{
    if (mount(from.c_str(), to, nullptr, MS_BIND, nullptr) == 0)
        return;
    perror(to);
    _exit(126);
}

// Which file it is. A name says less: from within a chroot the files of
// processes in another mount namespace have other names.
std::pair<dev_t, ino_t> FileId(const std::string& path)
{
    struct stat status = {};
    (void)stat(path.c_str(), &status);
    return {status.st_dev, status.st_ino};
}

std::string Preloaded(const CServiceOptions& options)
{
    std::string list;
    if (options.withFaults)
        list += KZA_BINARY_DIR "/tests/libprocess_faults.so:";
    if (options.speed != 1)
        list += kFakeTime;
    return list;
}

} // namespace

CProcessState ProcessInfo(pid_t pid)
{
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t nameEnd = stat.rfind(')');
    CProcessState info;
    if (nameEnd == std::string::npos)
        return info;
    std::istringstream fields(stat.substr(nameEnd + 1));
    fields >> info.state >> info.parent >> info.group >> info.session >>
        info.terminal;
    info.pid = pid;
    return info;
}

pid_t DeadPid()
{
    return PidIn(Run({"/bin/sh", "-c", "echo $$"}).out);
}

pid_t PidIn(const std::string& text)
{
    return static_cast<pid_t>(strtol(text.c_str(), nullptr, 10));
}

int CountOf(const std::string& text, const std::string& part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size()))
        ++count;
    return count;
}

CService::CService(std::string name)
    : m_name(std::move(name)), m_host(false), m_agent(FileId(m_host.Agent()))
{
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
    fs::create_directories(RunDir());
    fs::create_directories(m_dir.File("opt/kz_agent"));
    fs::copy(std::string(KZA_SOURCE_DIR) + "/tests/support/lua/mainloop.lua",
             m_host.File("lua/mainloop.lua"));
}

CService::~CService()
{
    // What its workers started is in the session of the service.
    std::set<pid_t> sessions;
    for (const pid_t pid : Processes())
        sessions.insert(ProcessInfo(pid).session);
    sessions.erase(getsid(0));
    for (const pid_t pid : AllProcesses())
        if (sessions.count(ProcessInfo(pid).session) != 0)
            kill(pid, SIGKILL);
    for (const pid_t pid : Processes())
        kill(pid, SIGKILL);
    (void)WaitUntilGone();
}

std::string CService::PidFile() const
{
    return RunDir() + "/" + m_name + ".pid";
}

std::string CService::DriverScript() const
{
    return m_dir.File("opt/kz_agent/SunOS.init");
}

void CService::SetModule(const std::string& source) const
{
    m_host.AddModule(m_name, source);
}

std::string CService::LogDir() const
{
    std::string path = m_host.File("work/log");
    fs::create_directories(path);
    return path;
}

std::vector<std::string> CService::Words(
    const std::vector<std::string>& arguments) const
{
    std::vector<std::string> words = {"--background", "--appname", m_name};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return m_host.Words(words);
}

CProcessOptions CService::Process(const CServiceOptions& options) const
{
    CProcessOptions process = options.process;
    const std::string preload = Preloaded(options);
    if (!preload.empty())
    {
        process.env.emplace_back("LD_PRELOAD", preload);
        // The sanitizer would insist on being first.
        process.env.emplace_back("ASAN_OPTIONS", "verify_asan_link_order=0");
    }
    if (options.speed != 1)
        process.env.emplace_back("FAKETIME",
                                 "+0 x" + std::to_string(options.speed));
    const std::string run = RunDir();
    const std::string opt = m_dir.File("opt");
    // The library of the clock names shared memory after its process. What one
    // that was killed leaves is found by a later one of the same id.
    const bool ownShm = options.speed != 1;
    process.inChild = [run, opt, ownShm, more = options.process.inChild]
    {
        EnterMountNamespace();
        BindOver(run, "/run");
        BindOver(opt, "/opt");
        if (ownShm)
            MountTmpfs("/dev/shm", "1m");
        if (more)
            more();
    };
    return process;
}

CProcessResult CService::Start(const CServiceOptions& options) const
{
    return Run(Words(options.arguments), Process(options));
}

bool CService::StartUntil(const std::string& text,
                          const CServiceOptions& options) const
{
    const CProcessResult result = Start(options);
    if (result.status != 0)
        fprintf(stderr, "launcher: %d %s\n", result.status, result.err.c_str());
    return result.status == 0 && WaitForLog(text);
}

pid_t CService::PidFromFile() const
{
    return PidIn(ReadFile(PidFile()));
}

std::vector<pid_t> CService::Processes() const
{
    std::vector<pid_t> found;
    for (const pid_t pid : AllProcesses())
        if (FileId("/proc/" + std::to_string(pid) + "/exe") == m_agent)
            found.push_back(pid);
    return found;
}

pid_t CService::Worker() const
{
    const std::vector<pid_t> all = Processes();
    const std::set<pid_t> known(all.begin(), all.end());
    for (const pid_t pid : all)
    {
        // The child of the session leader is the watchdog.
        const CProcessState info = ProcessInfo(pid);
        if (known.count(info.parent) != 0 && info.parent != info.session)
            return pid;
    }
    return 0;
}

std::vector<std::string> CService::Records() const
{
    std::vector<std::string> records;
    const std::regex start("INFO kza: Worker [0-9]+ started");
    for (const std::string& record : m_host.Records(m_name))
        if (!std::regex_match(record, start))
            records.push_back(record);
    return records;
}

bool CService::WaitForLog(const std::string& text, int times) const
{
    return WaitUntil([&] { return CountOf(Log(), text) >= times; });
}

bool CService::WaitUntilDetached() const
{
    return WaitUntil([this] { return Processes().size() == 2; });
}

bool CService::WaitUntilGone() const
{
    return WaitUntil([this] { return Processes().empty(); });
}

bool CService::Stop() const
{
    const pid_t pid = PidFromFile();
    return pid > 0 && kill(pid, SIGTERM) == 0 && WaitUntilGone();
}

int CService::StatusOf(pid_t pid)
{
    int status = 0;
    if (!WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }))
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

} // namespace TestSupport
