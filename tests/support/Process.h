// SPDX-License-Identifier: Apache-2.0
//
// Processes that a test starts, and waits of bounded length.

#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace TestSupport
{

/// No wait of a test is longer than this; a test that reaches it has failed.
inline constexpr std::chrono::seconds kLongWait{120};

/// Looks again and again until the condition holds.
///
/// \return false when it does not within the limit.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = kLongWait);

struct CProcessOptions
{
    std::string cwd;                                      ///< empty: the test's
    std::vector<std::pair<std::string, std::string>> env; ///< added or replaced
    std::string input;                                    ///< standard input

    /// Run in the child before the program starts: mounts, limits, masks.
    std::function<void()> inChild;
};

struct CProcessResult
{
    int status = -1; ///< exit status, -1 when it did not exit
    int signal = 0;  ///< signal that killed it, 0 when none did
    std::string out;
    std::string err;
};

/// One running program. Killed and reaped when the object goes. Its locale is
/// C.UTF-8 and its time zone UTC unless the options say otherwise.
class CProcess
{
public:
    explicit CProcess(const std::vector<std::string>& words,
                      const CProcessOptions& options = {});
    ~CProcess();

    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    [[nodiscard]] pid_t Pid() const { return m_pid; }
    void Signal(int signal) const;

    /// What it wrote so far.
    [[nodiscard]] std::string Out() const;
    [[nodiscard]] std::string Err() const;

    /// True when it has ended.
    bool HasEnded();

    /// Waits for its end; kills it when that does not come within the limit,
    /// which shows as signal 9.
    CProcessResult Wait(std::chrono::milliseconds limit = kLongWait);

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    int m_waitStatus = 0;
    bool m_reaped = false;
};

/// Starts a program and waits for its end.
CProcessResult Run(const std::vector<std::string>& words,
                   const CProcessOptions& options = {});

/// True while a process of this id exists and is no zombie.
bool IsRunning(pid_t pid);

// For CProcessOptions::inChild. Both end the child with a message when the
// system refuses.

/// Gives the process mounts of its own, as root or in a user namespace.
void EnterMountNamespace();

/// Mounts a file system in memory over a directory.
///
/// \param size  As mount(8) takes it, "64k" for example.
void MountTmpfs(const std::string& directory, const std::string& size);

} // namespace TestSupport
