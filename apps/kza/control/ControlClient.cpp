// SPDX-License-Identifier: Apache-2.0

#include "control/ControlClient.h"

#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

// The limit of what is read from one client in one turn, so that a client which
// never stops sending does not keep the main loop from its other work.
constexpr std::size_t kPiece = 16 * 1024;
constexpr int kPiecesPerTurn = 4;

bool IsTransient(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

std::string TooLong()
{
    return ControlErrorLine("a line has more than " +
                            std::to_string(CControlClient::kMaxLine) +
                            " bytes");
}

bool IsBlank(const std::string& line)
{
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

} // namespace

CControlClient::CControlClient(int fd, Time now) : m_fd(fd), m_heard(now)
{
}

CControlClient::~CControlClient()
{
    close(m_fd);
}

bool CControlClient::Serve(const CControlService& service, Time now)
{
    SendChanges();
    bool more = true;
    for (int piece = 0; piece < kPiecesPerTurn && more; ++piece)
    {
        more = WantsToRead() && Read(now);
        if (!Answer(service, now))
            return false;
    }
    const bool over = m_finishing || (m_ended && m_in.empty());
    return !(over && Waiting() == 0) && now < Deadline();
}

// Answers requests and sends the answers by turns: lines that had to wait for
// room are answered as soon as the answers before them are sent.
bool CControlClient::Answer(const CControlService& service, Time now)
{
    do
    {
        AnswerLines(service);
        if (!Write(now))
            return false;
    } while (Waiting() == 0 && HoldsLine());
    return true;
}

bool CControlClient::WantsToRead() const
{
    return !m_ended && !m_finishing && Waiting() <= kMaxAnswersAhead;
}

// False when there was nothing more to read.
bool CControlClient::Read(Time now)
{
    std::array<char, kPiece> piece;
    const ssize_t count = recv(m_fd, piece.data(), piece.size(), 0);
    if (count > 0)
    {
        m_in.append(piece.data(), static_cast<std::size_t>(count));
        m_heard = now;
        return true;
    }
    if (count == 0 || !IsTransient(errno))
        m_ended = true;
    return false;
}

void CControlClient::AnswerLines(const CControlService& service)
{
    std::size_t begin = 0;
    while (!m_finishing && Waiting() <= kMaxAnswersAhead)
    {
        const std::size_t end = m_in.find('\n', begin + m_seen);
        if (end == std::string::npos)
        {
            m_seen = m_in.size() - begin;
            if (m_seen > kMaxLine)
                Dismiss(TooLong());
            else if (m_ended)
                begin = m_in.size(); // an incomplete line is no request
            break;
        }
        m_seen = 0;
        if (end - begin > kMaxLine)
            Dismiss(TooLong());
        else
            AnswerLine(service, m_in.substr(begin, end - begin));
        begin = end + 1;
    }
    m_in.erase(0, begin);
    if (m_in.empty())
        m_seen = 0;
}

bool CControlClient::HoldsLine() const
{
    return !m_finishing && m_in.find('\n', m_seen) != std::string::npos;
}

void CControlClient::AnswerLine(const CControlService& service,
                                const std::string& line)
{
    if (IsBlank(line))
        return;
    const CControlAnswer answer =
        AnswerControlRequest(service.dom, service.self, line);
    if (answer.watch)
        Watch(service, answer.watched);
    else
        Send(answer.line);
}

void CControlClient::Watch(const CControlService& service,
                           const std::string& key)
{
    if (!m_watched.empty() && m_watched != key)
    {
        Send(ControlErrorLine("this connection watches '" + m_watched +
                              "' already"));
        return;
    }
    m_watched = key;
    m_changes.reset();
    m_changes = std::make_unique<CKeyChanges>(service.dom, key, service.wake);
    SendChanges();
}

void CControlClient::SendChanges()
{
    if (m_changes == nullptr)
        return;
    for (const KzaCore::DomValue& value : m_changes->Take())
        Send(ControlValueLine(value));
}

void CControlClient::Dismiss(const std::string& line)
{
    Send(line);
    m_finishing = true;
}

void CControlClient::Send(const std::string& line)
{
    m_out += line;
    m_out += '\n';
}

// False when the connection has failed or too many bytes wait for the client.
bool CControlClient::Write(Time now)
{
    bool took = false;
    while (Waiting() > 0)
    {
        const ssize_t count =
            send(m_fd, m_out.data() + m_sent, Waiting(), MSG_NOSIGNAL);
        if (count < 0)
        {
            const bool full = IsTransient(errno);
            if (took || !m_unreadSince)
                m_unreadSince = now;
            m_out.erase(0, m_sent);
            m_sent = 0;
            return full && Waiting() <= kMaxWaiting;
        }
        m_sent += static_cast<std::size_t>(count);
        took = true;
    }
    m_out.clear();
    m_sent = 0;
    m_unreadSince.reset();
    return true;
}

CControlClient::Time CControlClient::Deadline() const
{
    if (m_unreadSince)
        return *m_unreadSince + kMaxUnread;
    return m_changes ? Time::max() : m_heard + kMaxSilence;
}
