// SPDX-License-Identifier: Apache-2.0
//
// A Redis server of a test's own.

#pragma once

#include "support/Process.h"
#include "support/TempDir.h"

#include <memory>
#include <string>
#include <vector>

namespace TestSupport
{

/// A real redis-server in a directory of its own, on a loopback address that
/// no other test uses. It keeps its data in an append-only file, so that it
/// goes on with them when it is started again. Killed when the object goes.
class CRedisServer
{
public:
    /// \param options  Further words of its command line; "{port}" stands for
    ///                 the port that Port() tells.
    explicit CRedisServer(std::vector<std::string> options = {});

    CRedisServer(const CRedisServer&) = delete;
    CRedisServer& operator=(const CRedisServer&) = delete;

    /// Starts it again and waits until it serves.
    ///
    /// \return false when it does not come up.
    bool Start();

    /// Ends it by SIGKILL and waits for its end.
    void Kill();

    /// Stops and continues it without its knowledge.
    void Signal(int signal) const;

    /// "host:port".
    [[nodiscard]] std::string Name() const;
    [[nodiscard]] const std::string& Host() const { return m_host; }
    [[nodiscard]] int Port() const { return m_port; }
    [[nodiscard]] const CTempDir& Dir() const { return m_dir; }

    /// What redis-cli prints for a command, without the last line's end.
    [[nodiscard]] std::string Cli(const std::vector<std::string>& words) const;

    /// The same when nothing is to be seen of it.
    void Do(const std::vector<std::string>& words) const { (void)Cli(words); }

    /// Options of redis-cli that come before each command: password, TLS.
    void SetCliOptions(std::vector<std::string> options)
    {
        m_cliOptions = std::move(options);
    }

private:
    std::string m_host;
    int m_port = 0;
    CTempDir m_dir;
    std::vector<std::string> m_options;
    std::vector<std::string> m_cliOptions;
    std::unique_ptr<CProcess> m_process;
};

} // namespace TestSupport
