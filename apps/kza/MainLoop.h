// SPDX-License-Identifier: Apache-2.0
//
// The main thread's event loop, ended from the script thread.
//
// The framework frees its loop as soon as it returns. The thread that asked
// for the exit may still be inside the loop's wake-up then, so the application
// keeps this one until that thread has been joined.
//
// Threads: made, run and deleted on the main thread; Exit() may be called from
// the thread that found it in `entered`.

#pragma once

#include <wx/evtloop.h>

#include <atomic>

class CMainLoop : public wxConsoleEventLoop
{
public:
    /// \param entered  Set to this loop once it has been entered and can be
    ///                 asked to exit; outlives the loop.
    explicit CMainLoop(std::atomic<CMainLoop*>& entered);

protected:
    void OnNextIteration() override;

private:
    std::atomic<CMainLoop*>& m_entered;
};
