// SPDX-License-Identifier: Apache-2.0

#include "control/ControlSocket.h"

#include "control/ListeningSocket.h"
#include "control/PeerUser.h"

#include "base/Bytes.h"

#include <wx/app.h>
#include <wx/log.h>

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

CControlSocket::CControlSocket(KzaCore::CDom& root, CControlIdentity self)
    : m_service{root, std::move(self), [this] { AskForTurn(); }}
{
}

CControlSocket::~CControlSocket()
{
    m_connections.clear();
    m_source.reset();
    if (m_listening < 0)
        return;
    close(m_listening);
    RemoveFile();
}

void CControlSocket::RemoveFile()
{
    if (m_listening >= 0)
        unlink(m_path.c_str());
}

bool CControlSocket::Open(const wxString& directory, wxEventLoopBase& loop)
{
    std::string name = m_service.self.name;
    std::replace(name.begin(), name.end(), '/', '_');
    m_path = std::string(directory.fn_str()) + "/" + name + ".sock";
    std::string reason;
    m_listening = ListenOn(m_path, reason);
    if (m_listening >= 0)
    {
        m_loop = &loop;
        m_source.reset(
            loop.AddSourceForFD(m_listening, this, wxEVENT_SOURCE_INPUT));
        return true;
    }
    wxLogWarning("No control socket '%s': %s", KzaCore::TextOfBytes(m_path),
                 KzaCore::TextOfBytes(reason));
    return false;
}

void CControlSocket::AskForTurn()
{
    if (!m_asked.exchange(true))
        wxTheApp->CallAfter([this] { Serve(); });
}

void CControlSocket::Serve()
{
    m_asked = false;
    const CControlClient::Time now = std::chrono::steady_clock::now();
    Accept(now);
    for (auto it = m_connections.begin(); it != m_connections.end();)
    {
        if (it->client.Serve(m_service, now))
            AwaitEvents(*it++);
        else
            it = m_connections.erase(it);
    }
    AwaitDeadline(now);
}

void CControlSocket::Accept(CControlClient::Time now)
{
    // At most as many as the limit of clients; the others wait for the next
    // turn.
    for (std::size_t i = 0; i < kMaxClients; ++i)
    {
        const int fd = AcceptOn(m_listening);
        if (fd < 0)
            return;
        Admit(fd, now);
    }
}

void CControlSocket::Admit(int fd, CControlClient::Time now)
{
    const std::optional<uid_t> user = PeerUser(fd);
    if (user && *user != 0 && *user != geteuid())
    {
        close(fd);
        return;
    }
    if (m_connections.size() < kMaxClients)
    {
        m_connections.emplace_back(fd, now);
        return;
    }
    CControlClient refused(fd, now);
    refused.Dismiss(ControlErrorLine("too many clients"));
    (void)refused.Serve(m_service, now);
}

void CControlSocket::AwaitEvents(CConnection& connection)
{
    const CControlClient& client = connection.client;
    const int flags = (client.WantsToRead() ? wxEVENT_SOURCE_INPUT : 0) |
                      (client.WantsToWrite() ? wxEVENT_SOURCE_OUTPUT : 0);
    if (flags == connection.flags)
        return;
    connection.flags = flags;
    connection.source.reset();
    connection.source.reset(
        m_loop->AddSourceForFD(client.Socket(), this, flags));
}

// Sets the timer for the earliest deadline of a client. Without clients, and
// with clients that only watch keys, there is none, and the timer is stopped.
void CControlSocket::AwaitDeadline(CControlClient::Time now)
{
    auto next = CControlClient::Time::max();
    for (const CConnection& connection : m_connections)
        next = std::min(next, connection.client.Deadline());
    if (next == CControlClient::Time::max())
    {
        Stop();
        return;
    }
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(next - now);
    StartOnce(static_cast<int>(std::max(left, milliseconds(1)).count()));
}
