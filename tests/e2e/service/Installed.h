// SPDX-License-Identifier: Apache-2.0
//
// An installation of a test's own, mounted where the service files look for it.

#pragma once

#include "support/Service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace TestSupport
{

inline constexpr char kWaits[] =
    "return { init = function() require('mainloop').wait()"
    " dom:Log('message', 'runs as ' .. tostring(os.getenv('LC_CTYPE'))) end,"
    " shutdown = function() dom:Log('message', 'shut down') end }";

/// An application that does not end by itself.
inline constexpr char kDoesNotEnd[] =
    "return { main = function() dom:Log('message', 'runs')"
    " while true do dom:Sleep(1000) end end }";

/// A service that init script and unit find, with kzctl beside the agent.
class CInstalled
{
public:
    explicit CInstalled(const char* module = kWaits,
                        const std::string& name = "kz_agent")
        : m_service(name)
    {
        m_service.SetModule(module);
        std::filesystem::copy(KZA_STAGE_DIR "/kzctl",
                              m_service.Host().File("kzctl"));
        std::filesystem::create_directory(m_service.Host().File("kza_core"));
        std::filesystem::copy(KZA_STAGE_DIR "/kza_core/kza.kze",
                              m_service.Host().File("kza_core/kza.kze"));
        std::filesystem::create_directory(m_service.Host().Work());
    }

    [[nodiscard]] const CService& Service() const { return m_service; }

    /// \param settings  Content of /etc/default/kz_agent, empty for no such
    ///                  file.
    [[nodiscard]] CProcessResult Run(const std::string& action,
                                     const std::string& settings = {}) const
    {
        return TestSupport::Run(
            {"/bin/sh", KZA_SOURCE_DIR "/packaging/service/kz_agent.init",
             action},
            m_service.Process(Options(settings)));
    }

    /// Runs a command line where the script would find the installation.
    [[nodiscard]] CProcessResult RunShell(
        const std::string& command, const std::string& settings = {}) const
    {
        return TestSupport::Run({"/bin/sh", "-c", command},
                                m_service.Process(Options(settings)));
    }

    [[nodiscard]] bool StartUntil(const std::string& text,
                                  const std::string& settings = {}) const
    {
        return Run("start", settings).status == 0 && m_service.WaitForLog(text);
    }

    /// Stops as on a host, where a process that has lost its parent is reaped.
    [[nodiscard]] CProcessResult Stop(const std::string& settings = {}) const
    {
        std::vector<std::thread> reapers;
        for (const pid_t pid : m_service.Processes())
            if (ProcessInfo(pid).parent == getpid())
                reapers.emplace_back([pid] { CService::StatusOf(pid); });
        CProcessResult result = Run("stop", settings);
        EXPECT_TRUE(m_service.WaitUntilGone());
        for (std::thread& reaper : reapers)
            reaper.join();
        return result;
    }

private:
    [[nodiscard]] CServiceOptions Options(const std::string& settings) const
    {
        CServiceOptions options;
        options.process.inChild = [this, settings]
        {
            MountTmpfs("/etc/default", "64k");
            if (!settings.empty())
                WriteFile("/etc/default/kz_agent", settings);
            MountTmpfs("/var/opt", "64k");
            std::filesystem::create_directory("/var/opt/kz_agent");
            const CHost& host = m_service.Host();
            if (mount(host.Bin().c_str(), "/opt/kz_agent", nullptr, MS_BIND,
                      nullptr) != 0 ||
                mount(host.Work().c_str(), "/var/opt/kz_agent", nullptr,
                      MS_BIND, nullptr) != 0)
                _exit(126);
            unsetenv("LC_ALL");
            unsetenv("LANG");
        };
        return options;
    }

    CService m_service;
};

inline bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// Everything that the init script does about a pid file that names a process
/// which is not the agent's.
inline void ExpectLeftAlone(const CInstalled& installed,
                            const CProcess& stranger)
{
    const std::string pid = std::to_string(stranger.Pid());
    const std::string& pidFile = installed.Service().PidFile();
    WriteFile(pidFile, pid + "\n");
    const CProcessResult status = installed.Run("status");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(Contains(status.out, "state     stale: ")) << status.out;
    EXPECT_EQ(installed.Run("stop").status, 0);

    const CProcessResult start = installed.Run("start");
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.out, "");
    EXPECT_EQ(start.err, "/var/run/kz_agent.pid names process " + pid +
                             ", another program: kz_agent starts once that "
                             "file is removed\n");
    EXPECT_EQ(ReadFile(pidFile), pid + "\n");
    EXPECT_TRUE(IsRunning(stranger.Pid()));
}

} // namespace TestSupport
