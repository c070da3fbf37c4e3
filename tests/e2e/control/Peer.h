// SPDX-License-Identifier: Apache-2.0
//
// A client of the control socket.

#pragma once

#include "support/Process.h"
#include "support/Service.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace TestSupport
{

/// Options of a service that listens.
inline const CServiceOptions kSwitchedOn{{"--domain_var", "control.socket=1"},
                                         {}};

/// Where it listens.
inline std::string SocketOf(const CService& service)
{
    return service.Host().Work() + "/run/" + service.Name() + ".sock";
}

/// One connection, which the test reads line by line.
class CPeer
{
public:
    explicit CPeer(const std::string& path)
        : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        m_connected = connect(m_fd, reinterpret_cast<sockaddr*>(&address),
                              sizeof address) == 0;
    }
    ~CPeer() { close(m_fd); }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    [[nodiscard]] bool IsConnected() const { return m_connected; }

    void Send(const std::string& bytes) const
    {
        (void)send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    /// The next line without its end; empty when the agent closes first.
    std::string Line()
    {
        for (;;)
        {
            const std::size_t end = m_in.find('\n');
            if (end != std::string::npos)
            {
                std::string line = m_in.substr(0, end);
                m_in.erase(0, end + 1);
                return line;
            }
            if (!Receive())
                return {};
        }
    }

    std::string Ask(const std::string& request)
    {
        Send(request + "\n");
        return Line();
    }

    /// What came next, as it came; empty when the agent closes.
    [[nodiscard]] std::string Bytes() const
    {
        pollfd poll{m_fd, POLLIN, 0};
        const int limit =
            static_cast<int>(std::chrono::milliseconds(kLongWait).count());
        if (::poll(&poll, 1, limit) != 1)
            return {};
        std::array<char, 65536> piece;
        const ssize_t count = recv(m_fd, piece.data(), piece.size(), 0);
        return count > 0
                   ? std::string(piece.data(), static_cast<std::size_t>(count))
                   : std::string();
    }

private:
    bool Receive()
    {
        const std::string piece = Bytes();
        m_in += piece;
        return !piece.empty();
    }

    int m_fd;
    bool m_connected = false;
    std::string m_in;
};

} // namespace TestSupport
