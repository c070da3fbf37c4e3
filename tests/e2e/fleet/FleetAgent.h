// SPDX-License-Identifier: Apache-2.0
//
// An agent of the fleet: the example as a service that also writes events.

#pragma once

#include "support/RedisServer.h"
#include "support/Service.h"

#include <map>
#include <string>
#include <vector>

namespace TestSupport
{

/// Where the example's modules are, for --lua_path.
inline constexpr char kFleetPath[] =
    KZA_SOURCE_DIR "/examples/fleet/?.lua;" KZA_SOURCE_DIR "/examples/?.lua";

/// The time within which a stop is followed, with room for a busy machine.
inline constexpr std::chrono::milliseconds kStopLimit{1000};

/// The service's application requires the example and calls its functions. It
/// writes events until there are as many as wanted, "event 1" and so on, which
/// are their ids, too.
class CFleetAgent
{
public:
    /// \param host      Its name in the fleet.
    /// \param servers   As the setting has it.
    /// \param settings  More of them, which replace those that it has for
    ///                  tests: short intervals.
    CFleetAgent(const std::string& host,
                const std::string& servers,
                std::map<std::string, std::string> settings = {});

    [[nodiscard]] const CService& Service() const { return m_service; }

    /// Changes a setting; it holds from the next start on.
    void Set(const std::string& name, const std::string& value);

    /// Has it write events until there are so many.
    void Want(int events) const;

    /// Starts it and waits until `init` has returned.
    [[nodiscard]] bool Start() const;

    /// Waits until the log shows the text.
    [[nodiscard]] bool Logs(const std::string& text, int times = 1) const
    {
        return m_service.WaitForLog(text, times);
    }

    /// Waits until so many events are in its database.
    [[nodiscard]] bool HasWritten(int events) const;

    /// Sets kza.HeartbeatNow through the control socket.
    void Heartbeat() const;

    /// Runs kzctl for it.
    [[nodiscard]] CProcessResult Ctl(std::vector<std::string> words) const;

private:
    CService m_service{"reporter"};
    std::map<std::string, std::string> m_settings;
};

/// The events of a host on a server, a line each: "1-0 event 1".
std::vector<std::string> EventsOn(const CRedisServer& server,
                                  const std::string& host);

/// What EventsOn() shows of events that are all there once and in order.
std::vector<std::string> EventLines(int first, int last);

/// Waits until the server has exactly these events of a host.
bool HasEvents(const CRedisServer& server,
               const std::string& host,
               int first,
               int last);

} // namespace TestSupport
