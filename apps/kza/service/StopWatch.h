// SPDX-License-Identifier: Apache-2.0
//
// Tells a script that is still in its main that the service is to stop.
//
// In background mode SIGTERM stays pending until the script thread waits for
// it, which it does only after the script's main has returned. A main that
// loops would never learn of it, so the main thread's event loop watches: a
// pending SIGTERM asks the script thread to exit, which cuts its waits short.
// The signal itself is left for the script thread to take.
//
// Where the system cannot tell of a pending signal, main is not told either
// and has to return by itself.

#pragma once

#include <wx/evtloop.h>
#include <wx/evtloopsrc.h>

#include <memory>
#include <mutex>

namespace KzaCore
{
class CRunnable;
} // namespace KzaCore

class CStopWatch : public wxEventLoopSourceHandler
{
public:
    /// \param script  Outlives this object.
    explicit CStopWatch(KzaCore::CRunnable& script);
    ~CStopWatch() override;

    CStopWatch(const CStopWatch&) = delete;
    CStopWatch& operator=(const CStopWatch&) = delete;

    /// Begins to watch in the main thread's loop, on that thread.
    void Start(wxEventLoopBase& loop);

    /// The script waits for the signal itself from now on, and a request made
    /// so far has been heard. On the script thread.
    void Disarm();

    void OnReadWaiting() override;
    void OnWriteWaiting() override {}
    void OnExceptionWaiting() override {}

private:
    void Stop();

    KzaCore::CRunnable& m_script;
    int m_pending = -1;
    std::unique_ptr<wxEventLoopSource> m_source;

    std::mutex m_mutex; // guards what follows
    bool m_armed = true;
};
