// SPDX-License-Identifier: Apache-2.0
//
// The control socket, through which operators read and set keys of the domain
// of a running application.
//
// The process that runs the application listens on a socket of the Unix domain
// in its working directory, which only root and the agent's own user can reach.
// The main thread's event loop serves it; no Lua runs and no call blocks.
//
// In one turn the framework's loop may have events of several descriptors, so a
// handler must not destroy the objects of another descriptor. Handlers
// therefore only ask for Serve(), which the loop calls between two turns and
// which alone adds and removes connections.
//
// Threads: the main thread. AskForTurn() may be called from any.

#pragma once

#include "control/ControlClient.h"

#include <wx/evtloop.h>
#include <wx/evtloopsrc.h>
#include <wx/string.h>
#include <wx/timer.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>

class CControlSocket : private wxEventLoopSourceHandler, private wxTimer
{
public:
    static constexpr std::size_t kMaxClients = 16;

    CControlSocket(KzaCore::CDom& root, CControlIdentity self);
    /// Closes every connection and removes the socket's file.
    ~CControlSocket() override;

    CControlSocket(const CControlSocket&) = delete;
    CControlSocket& operator=(const CControlSocket&) = delete;

    /// Begins to listen and to serve clients from the loop.
    ///
    /// \param directory  Of the socket's file; only its owner may enter it.
    /// \param loop       Outlives this object.
    ///
    /// \return false when that fails; the reason is a warning in the log.
    bool Open(const wxString& directory, wxEventLoopBase& loop);

    /// Removes the socket's file, for a process that is about to end. Threads:
    /// any while the main thread sleeps in its loop.
    void RemoveFile();

private:
    struct CConnection
    {
        CConnection(int fd, CControlClient::Time now) : client(fd, now) {}

        CControlClient client;
        int flags = 0; // the events that the source waits for
        std::unique_ptr<wxEventLoopSource> source;
    };

    void OnReadWaiting() override { AskForTurn(); }
    void OnWriteWaiting() override { AskForTurn(); }
    void OnExceptionWaiting() override { AskForTurn(); }
    void Notify() override { Serve(); }

    void AskForTurn();
    void Serve();
    void Accept(CControlClient::Time now);
    void Admit(int fd, CControlClient::Time now);
    void AwaitEvents(CConnection& connection);
    void AwaitDeadline(CControlClient::Time now);

    const CControlService m_service;
    wxEventLoopBase* m_loop = nullptr;
    std::string m_path; // of the socket's file
    int m_listening = -1;
    std::unique_ptr<wxEventLoopSource> m_source;
    std::list<CConnection> m_connections;
    std::atomic<bool> m_asked{false}; // a call of Serve() is queued
};
