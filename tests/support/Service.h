// SPDX-License-Identifier: Apache-2.0
//
// The agent in background mode: a daemon of a test's own.

#pragma once

#include "support/Host.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace TestSupport
{

/// What /proc says about a process.
struct CProcessState
{
    pid_t pid = 0;
    pid_t parent = 0;
    pid_t group = 0;
    pid_t session = 0;
    int terminal = 0; ///< 0 when it has none
    char state = '?';
};

/// The process's entry, with pid 0 when there is none.
CProcessState ProcessInfo(pid_t pid);

/// The id of a process that has ended.
pid_t DeadPid();

/// The decimal number in a text, 0 when there is none.
pid_t PidIn(const std::string& text);

struct CServiceOptions
{
    std::vector<std::string> arguments; ///< after those of background mode
    CProcessOptions process;

    /// How many times faster than the wall the service's clock goes.
    int speed = 1;

    /// Load what makes calls about processes fail, see preload/.
    bool withFaults = false;
};

/// An installation whose agent is started in the background. It sees a /run
/// and an /opt of its own, so services of any name run side by side.
///
/// Processes of it that still run are killed when the object goes. Those that
/// lose their parent become children of the test.
class CService
{
public:
    explicit CService(std::string name = "kz_agent");
    ~CService();

    CService(const CService&) = delete;
    CService& operator=(const CService&) = delete;

    [[nodiscard]] const CHost& Host() const { return m_host; }
    [[nodiscard]] const std::string& Name() const { return m_name; }

    /// Paths as the test sees them: the service's own name for the first is
    /// /var/run/<name>.pid.
    [[nodiscard]] std::string PidFile() const;
    [[nodiscard]] std::string RunDir() const { return m_dir.File("run"); }
    [[nodiscard]] std::string DriverScript() const;

    /// The application's module: what `main` and the rest are made of. The
    /// module `mainloop` is there to be required.
    void SetModule(const std::string& source) const;

    /// Makes and returns the directory of the log, so that an option of the
    /// process may mount something over it.
    [[nodiscard]] std::string LogDir() const;

    /// The words and options that start it, for a test that starts it itself.
    [[nodiscard]] std::vector<std::string> Words(
        const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] CProcessOptions Process(
        const CServiceOptions& options = {}) const;

    /// Starts the service and waits for the end of the launching process.
    CProcessResult Start(const CServiceOptions& options = {}) const;

    /// As Start(), and waits until the log shows the text.
    ///
    /// \return false when the launcher fails or the text does not come.
    bool StartUntil(const std::string& text,
                    const CServiceOptions& options = {}) const;

    /// What the pid file says, 0 when it is not there.
    [[nodiscard]] pid_t PidFromFile() const;

    /// The processes that run this installation's executable, zombies apart.
    [[nodiscard]] std::vector<pid_t> Processes() const;

    /// The worker of a watchdog, 0 while there is none.
    [[nodiscard]] pid_t Worker() const;

    [[nodiscard]] std::string Log() const { return m_host.Log(m_name); }

    /// The log's records as the text after the level, in order. Without those
    /// of workers' starts: a worker may be faster than the watchdog's record.
    [[nodiscard]] std::vector<std::string> Records() const;

    /// Waits until the log shows the text at least so many times.
    [[nodiscard]] bool WaitForLog(const std::string& text, int times = 1) const;

    /// Waits until watchdog and worker are all there is: the session leader
    /// may end after the worker runs.
    [[nodiscard]] bool WaitUntilDetached() const;

    /// Waits until no process of the service is left.
    [[nodiscard]] bool WaitUntilGone() const;

    /// Sends SIGTERM to the process that the pid file names and waits until
    /// nothing is left.
    [[nodiscard]] bool Stop() const;

    /// Waits for the end of a process of the service that its parent has left,
    /// the watchdog above all, and tells its exit status; 256 and the signal's
    /// number when it was killed, -1 when it does not end.
    static int StatusOf(pid_t pid);

private:
    std::string m_name;
    CHost m_host;
    std::pair<dev_t, ino_t> m_agent; // the executable
    CTempDir m_dir;
};

/// How often a text occurs in another.
int CountOf(const std::string& text, const std::string& part);

} // namespace TestSupport
