// SPDX-License-Identifier: Apache-2.0

#include "support/RedisServer.h"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace TestSupport
{

namespace
{

// Every process has an address of its own among those that lead to the host
// itself. So a server that was killed finds its port free when it comes back.
std::string OwnAddress()
{
    const auto pid = static_cast<unsigned>(getpid());
    const auto byte = [pid](int shift)
    { return std::to_string((pid >> shift) & 0xFFU); };
    return "127." + std::to_string(64 + ((pid >> 16) & 0x3FU)) + "." + byte(8) +
           "." + byte(0);
}

// The last byte is neither 0 nor 255, which some systems treat as special.
std::string Usable(const std::string& address)
{
    const std::size_t dot = address.rfind('.');
    const int last = std::stoi(address.substr(dot + 1));
    return last == 0 || last == 255 ? address.substr(0, dot + 1) + "77"
                                    : address;
}

// A free port below those at which a cluster's nodes talk to each other, which
// are 10000 above.
int FreePort(const std::string& host)
{
    constexpr int kMost = 65535 - 10000;
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, host.c_str(), &address.sin_addr);
        socklen_t size = sizeof address;
        const bool isBound =
            bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
        close(fd);
        if (isBound && ntohs(address.sin_port) < kMost)
            return ntohs(address.sin_port);
    }
    throw std::runtime_error("no free port at " + host);
}

} // namespace

CRedisServer::CRedisServer(std::vector<std::string> options)
    : m_host(Usable(OwnAddress())),
      m_port(FreePort(m_host)),
      m_options(std::move(options))
{
    if (!Start())
        throw std::runtime_error("redis-server does not start: " +
                                 m_process->Out() + m_process->Err());
}

bool CRedisServer::Start()
{
    std::vector<std::string> words = {"/usr/bin/redis-server",
                                      "--bind",
                                      m_host,
                                      "--port",
                                      std::to_string(m_port),
                                      "--dir",
                                      m_dir.Path(),
                                      "--appendonly",
                                      "yes",
                                      "--save",
                                      ""};
    for (const std::string& option : m_options)
        words.push_back(option == "{port}" ? std::to_string(m_port) : option);
    CProcessOptions process;
    process.inChild = [] { prctl(PR_SET_PDEATHSIG, SIGKILL); };
    m_process = std::make_unique<CProcess>(words, process);
    return WaitUntil(
               [this]
               {
                   return m_process->HasEnded() ||
                          m_process->Out().find("Ready to accept") !=
                              std::string::npos;
               }) &&
           !m_process->HasEnded();
}

void CRedisServer::Kill()
{
    m_process.reset();
}

void CRedisServer::Signal(int signal) const
{
    m_process->Signal(signal);
}

std::string CRedisServer::Name() const
{
    return m_host + ":" + std::to_string(m_port);
}

std::string CRedisServer::Cli(const std::vector<std::string>& words) const
{
    std::vector<std::string> all = {"/usr/bin/redis-cli", "-h", m_host, "-p",
                                    std::to_string(m_port)};
    all.insert(all.end(), m_cliOptions.begin(), m_cliOptions.end());
    all.insert(all.end(), words.begin(), words.end());
    std::string out = Run(all).out;
    if (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

} // namespace TestSupport
