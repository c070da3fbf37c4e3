// SPDX-License-Identifier: Apache-2.0
//
// A thread and the requests that other threads make of it.
//
//   1. Before the thread runs, CRequests has no CWakeUp. requestExit() sets the
//      mark that TestDestroy() shows; the other requests do nothing.
//   2. Entry(), on the new thread, publishes the thread's handle and its
//      CWakeUp under the mutex, and hands over an exit request that came
//      before.
//   3. While the thread runs, each request is made under the mutex, so the
//      thread cannot end and its handle cannot become invalid meanwhile.
//   4. Entry() removes the CWakeUp under the mutex after OnRun() has returned.
//      From then on requests do nothing, as in step 1.
//
// requestExit() is final: it ends every wait and interrupts a blocking system
// call by SigThreadDelete. AnnounceStop() ends only waits in the CWakeUp, so
// that a read or a child process of the thread's own work is not disturbed.

#include "kza_core/Runnable.h"

#include "base/Mutex.h"
#include "base/SignalSet.h"
#include "process/SignalStack.h"
#include "process/ThreadLog.h"
#include "process/WakeUp.h"

#include <wx/app.h>
#include <wx/log.h>

#include <csignal>
#include <cstdlib>

namespace KzaCore
{

namespace
{

extern "C" void WakeUpSignalCB(int /*signal*/)
{
    // The delivery alone has the effect: a blocking call returns with EINTR.
}

// The default action of a real-time signal ends the process.
void EnsureWakeUpHandler()
{
    struct sigaction action
    {
    };
    if (sigaction(CRunnable::SigThreadDelete, nullptr, &action) != 0 ||
        action.sa_handler != SIG_DFL)
        return;
    action.sa_handler = WakeUpSignalCB;
    action.sa_flags = 0; // no SA_RESTART: the call must return
    action.sa_mask = SignalSet({});
    sigaction(CRunnable::SigThreadDelete, &action, nullptr);
}

// Gives the calling thread its log target.
class CThreadLog
{
public:
    CThreadLog() { wxLog::SetThreadActiveTarget(ThreadLogTarget()); }
    ~CThreadLog() { wxLog::SetThreadActiveTarget(nullptr); }

    CThreadLog(const CThreadLog&) = delete;
    CThreadLog& operator=(const CThreadLog&) = delete;
};

} // namespace

// Above the first real-time signals, which C libraries reserve and debuggers
// and profilers often use.
const int CRunnable::SigThreadDelete = SIGRTMIN + 5;

// The state that the thread and the requests for it share.
struct CRunnable::CRequests
{
    CMutex mutex;
    std::shared_ptr<CWakeUp> wakeUp KZA_GUARDED_BY(mutex); // while it runs
    pthread_t thread KZA_GUARDED_BY(mutex){};
    bool exitRequested KZA_GUARDED_BY(mutex) = false;
};

CRunnable::CRunnable(bool reserved1, int reserved2, bool reserved3)
    : wxThread(wxTHREAD_JOINABLE), m_requests(std::make_unique<CRequests>())
{
    wxASSERT(!reserved1 && reserved2 == -1 && !reserved3);
    wxUnusedVar(reserved1);
    wxUnusedVar(reserved2);
    wxUnusedVar(reserved3);
}

CRunnable::~CRunnable() = default;

wxThreadError CRunnable::Delete(void** exitCode)
{
    requestExit();
    void* const code = JoinOnce();
    if (exitCode != nullptr)
        *exitCode = code;
    return wxTHREAD_NO_ERROR;
}

const wchar_t* CRunnable::GetThreadName() const
{
    return L"CRunnable";
}

void CRunnable::Awaken()
{
    const CLock lock(m_requests->mutex);
    if (m_requests->wakeUp)
        m_requests->wakeUp->Signal();
}

void CRunnable::interrupt()
{
    // Under the lock the thread cannot end in between.
    const CLock lock(m_requests->mutex);
    if (m_requests->wakeUp)
        pthread_kill(m_requests->thread, SigThreadDelete);
}

void CRunnable::requestExit()
{
    {
        const CLock lock(m_requests->mutex);
        m_requests->exitRequested = true;
        if (m_requests->wakeUp)
            m_requests->wakeUp->RequestExit();
    }
    Awaken();
    interrupt();
}

void CRunnable::AnnounceStop()
{
    const CLock lock(m_requests->mutex);
    if (m_requests->wakeUp)
        m_requests->wakeUp->AnnounceStop();
}

void CRunnable::WithdrawStop()
{
    const CLock lock(m_requests->mutex);
    if (m_requests->wakeUp)
        m_requests->wakeUp->WithdrawStop();
}

bool CRunnable::TestDestroy()
{
    const CLock lock(m_requests->mutex);
    return m_requests->exitRequested;
}

bool CRunnable::TestDestroy(unsigned int timeout, bool* requested)
{
    SleepFor(std::chrono::milliseconds(timeout));
    const bool exit = TestDestroy();
    if (requested != nullptr)
        *requested = exit;
    return exit;
}

bool CRunnable::start(unsigned int priority,
                      bool joinable,
                      unsigned int stackSize)
{
    wxASSERT(joinable);
    wxUnusedVar(joinable);
    EnsureWakeUpHandler();

    // The framework logs the reason when the system gives no thread.
    if (Create(stackSize) != wxTHREAD_NO_ERROR)
        return false;
    SetPriority(priority);
    m_started = Run() == wxTHREAD_NO_ERROR;
    return m_started;
}

void CRunnable::join()
{
    JoinOnce();
}

wxThread::ExitCode CRunnable::JoinOnce()
{
    if (!m_started)
        return nullptr;
    m_started = false;
    return Wait(wxTHREAD_WAIT_BLOCK);
}

bool CRunnable::SleepFor(std::chrono::milliseconds time)
{
    return CWakeUp::Current()->SleepFor(time);
}

wxThread::ExitCode CRunnable::Entry()
{
    const CSignalStack signalStack;
    const CThreadLog log;
    {
        const CLock lock(m_requests->mutex);
        m_requests->thread = pthread_self();
        m_requests->wakeUp = CWakeUp::Current();
        if (m_requests->exitRequested)
            m_requests->wakeUp->RequestExit();
    }
    try
    {
        OnRun();
    }
    catch (...)
    {
        // The framework itself would call the same hook and then only end the
        // thread, while the main loop waits for ever.
        if (wxTheApp != nullptr)
            wxTheApp->OnUnhandledException();
        exit(255);
    }
    const CLock lock(m_requests->mutex);
    m_requests->wakeUp.reset();
    return nullptr;
}

} // namespace KzaCore
