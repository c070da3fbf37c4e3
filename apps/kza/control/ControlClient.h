// SPDX-License-Identifier: Apache-2.0
//
// One connection to the control socket: bytes in, lines out, and the limits
// that keep a client from costing more than a little memory.
//
// A request is answered as soon as its line is complete. While answers wait for
// the client, no further line is read from it: a client that sends without
// reading fills its own socket and not the agent's memory.
//
// Threads: the main thread. No function waits.

#pragma once

#include "control/ControlRequest.h"
#include "control/KeyChanges.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// The data that all clients of the process share.
struct CControlService
{
    KzaCore::CDom& dom; // the root domain
    CControlIdentity self;
    /// Makes the main loop serve all clients soon. Threads: any.
    std::function<void()> wake;
};

class CControlClient
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Bytes of a request without its line break.
    static constexpr std::size_t kMaxLine = 64 * 1024;
    /// Bytes that may wait for a client; it is dropped with more.
    static constexpr std::size_t kMaxWaiting = 256 * 1024;
    /// No further request is read while more bytes than this wait.
    static constexpr std::size_t kMaxAnswersAhead = 64 * 1024;
    /// A client that watches no key is dropped after this time without a byte.
    static constexpr std::chrono::seconds kMaxSilence{60};
    /// A client is dropped after this time without reading waiting bytes.
    static constexpr std::chrono::seconds kMaxUnread{30};

    /// \param fd  A connected socket that does not block; owned from now on.
    CControlClient(int fd, Time now);
    ~CControlClient();

    CControlClient(const CControlClient&) = delete;
    CControlClient& operator=(const CControlClient&) = delete;

    /// Reads, answers and writes as far as possible without waiting.
    ///
    /// \return false when the connection is to be closed.
    [[nodiscard]] bool Serve(const CControlService& service, Time now);

    /// Sends a line that is no answer and closes the connection after it.
    void Dismiss(const std::string& line);

    /// The time when Serve() must be called even without an event on the
    /// socket.
    [[nodiscard]] Time Deadline() const;

    [[nodiscard]] int Socket() const { return m_fd; }
    [[nodiscard]] bool WantsToRead() const;
    [[nodiscard]] bool WantsToWrite() const { return Waiting() > 0; }

private:
    [[nodiscard]] std::size_t Waiting() const { return m_out.size() - m_sent; }
    [[nodiscard]] bool HoldsLine() const;

    bool Read(Time now);
    bool Answer(const CControlService& service, Time now);
    void AnswerLines(const CControlService& service);
    void AnswerLine(const CControlService& service, const std::string& line);
    void Watch(const CControlService& service, const std::string& key);
    void SendChanges();
    void Send(const std::string& line);
    bool Write(Time now);

    const int m_fd;
    std::string m_in;       // from the first byte of the present line
    std::size_t m_seen = 0; // bytes of m_in known to hold no line break
    std::string m_out;
    std::size_t m_sent = 0; // bytes of m_out that were sent
    bool m_ended = false;   // the client has sent its last byte
    bool m_finishing = false;
    std::string m_watched;                  // the key, empty for none
    std::unique_ptr<CKeyChanges> m_changes; // of that key
    Time m_heard;                      // the time of the client's last byte
    std::optional<Time> m_unreadSince; // unset while no byte waits to be sent
};
