// SPDX-License-Identifier: Apache-2.0
//
// The bytes are what a client writes to the control socket.

#include "control/ControlClient.h"
#include "support/DomPtr.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

void Require(bool isTrue, const char* what)
{
    if (isTrue)
        return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

// A client of a domain of its own, and the peer that writes and reads.
class CConversation
{
public:
    CConversation()
    {
        std::array<int, 2> pair{};
        Require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) == 0,
                "there is a socket");
        for (const int fd : pair)
            fcntl(fd, F_SETFL, O_NONBLOCK);
        m_peer = pair[0];
        m_client = std::make_unique<CControlClient>(pair[1], m_now);
    }
    ~CConversation()
    {
        m_client.reset();
        close(m_peer);
    }
    CConversation(const CConversation&) = delete;
    CConversation& operator=(const CConversation&) = delete;

    // Writes the bytes in pieces, and reads what comes.
    //
    // \return the answers, line by line.
    std::vector<std::string> Talk(const std::string& bytes, std::size_t piece)
    {
        for (std::size_t at = 0; at < bytes.size() && m_isOpen; at += piece)
            Write(bytes.substr(at, piece));
        shutdown(m_peer, SHUT_WR);
        while (m_isOpen)
            Serve();
        return Lines();
    }

    [[nodiscard]] bool HasWatched() const { return m_hasWatched; }

private:
    void Write(const std::string& piece)
    {
        for (std::size_t sent = 0; sent < piece.size() && m_isOpen;)
        {
            const ssize_t count = send(m_peer, piece.data() + sent,
                                       piece.size() - sent, MSG_NOSIGNAL);
            sent += count > 0 ? static_cast<std::size_t>(count) : 0;
            Serve();
        }
    }

    void Serve()
    {
        m_isOpen = m_client->Serve(m_service, m_now);
        if (m_client->Deadline() == CControlClient::Time::max())
            m_hasWatched = true;
        std::array<char, 65536> piece;
        ssize_t count = 0;
        while ((count = recv(m_peer, piece.data(), piece.size(), 0)) > 0)
            m_received.append(piece.data(), static_cast<std::size_t>(count));
    }

    [[nodiscard]] std::vector<std::string> Lines() const
    {
        Require(m_received.empty() || m_received.back() == '\n',
                "each answer is a whole line");
        std::vector<std::string> lines;
        for (std::size_t at = 0; at < m_received.size();)
        {
            const std::size_t end = m_received.find('\n', at);
            lines.push_back(m_received.substr(at, end - at));
            at = end + 1;
        }
        return lines;
    }

    const TestSupport::DomPtr m_dom = TestSupport::NewDom();
    const CControlService m_service{*m_dom, {"fuzz", "1"}, [] {}};
    const CControlClient::Time m_now =
        CControlClient::Time(std::chrono::seconds(1000));
    int m_peer = -1;
    std::unique_ptr<CControlClient> m_client;
    bool m_isOpen = true;
    bool m_hasWatched = false;
    std::string m_received;
};

void CheckAnswer(const std::string& line)
{
    const auto answer = nlohmann::json::parse(line, nullptr, false);
    Require(answer.is_object() && answer.value("ok", answer).is_boolean(),
            "each answer is an object that says whether it is good");
    Require(answer["ok"] || answer.value("error", answer).is_string(),
            "an error has a reason");
}

// Lines that ask for something: blank ones do not, nor does a last one without
// an end.
std::size_t CountRequests(const std::string& bytes)
{
    std::size_t count = 0;
    std::size_t at = 0;
    for (std::size_t end = 0; (end = bytes.find('\n', at)) != std::string::npos;
         at = end + 1)
        if (bytes.find_first_not_of(" \t\r", at) < end)
            ++count;
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CConversation whole;
    const auto answers = whole.Talk(bytes, size + 1);
    for (const std::string& answer : answers)
        CheckAnswer(answer);
    // Of changes that come together, a watcher hears when it is served.
    CConversation pieces;
    const auto others = pieces.Talk(bytes, std::max<std::size_t>(size / 13, 1));
    if (whole.HasWatched() || pieces.HasWatched())
        return 0;
    Require(answers.size() == CountRequests(bytes),
            "each request has one answer");
    Require(answers == others, "pieces make no difference");
    return 0;
}
