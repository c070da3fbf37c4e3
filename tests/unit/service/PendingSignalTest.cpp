// SPDX-License-Identifier: Apache-2.0

#include "service/PendingSignal.h"

#include "script/MainLoop.h"

#include "base/SignalSet.h"
#include "support/InChild.h"

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/init.h>

#include <csignal>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>

using TestSupport::InChild;

namespace
{

constexpr int kSignal = SIGUSR1;

void BlockSignal()
{
    const sigset_t set = KzaCore::SignalSet({kSignal});
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

bool IsPending()
{
    sigset_t pending = KzaCore::SignalSet({});
    sigpending(&pending);
    return sigismember(&pending, kSignal) == 1;
}

// A loop that watches for the signal and ends when it has been noticed.
class CWatch
{
public:
    CWatch()
        : m_loop(m_progress),
          m_pending(kSignal,
                    [this]
                    {
                        ++notices;
                        m_loop.ScheduleExit(0);
                    })
    {
    }

    void RunUntilNoticed()
    {
        m_pending.Watch(m_loop);
        m_loop.Run();
    }

    int notices = 0;

private:
    CMainLoopProgress m_progress;
    CMainLoop m_loop;
    CPendingSignal m_pending;
};

// Takes all descriptors that are left, so that the system gives no more.
void UseUpDescriptors()
{
    const rlimit few = {64, 64};
    setrlimit(RLIMIT_NOFILE, &few);
    while (dup(STDERR_FILENO) >= 0)
    {
    }
}

// Sends the signal to the process while its main thread waits in the loop.
void ExpectNoticed(bool withDescriptor)
{
    const wxInitializer framework;
    BlockSignal();
    CWatch watch;
    if (!withDescriptor)
        UseUpDescriptors();
    const pid_t self = getpid();
    const pid_t sender = fork();
    if (sender == 0)
    {
        usleep(20000); // mostly in the loop by then; not before is right, too
        kill(self, kSignal);
        _exit(0);
    }
    watch.RunUntilNoticed();
    EXPECT_EQ(watch.notices, 1);
    EXPECT_TRUE(IsPending()) << "the signal was taken";
    waitpid(sender, nullptr, 0);
}

} // namespace

TEST(PendingSignal, IsNoticedAndStaysPending)
{
    EXPECT_EQ(InChild([] { ExpectNoticed(true); }), 0);
}

// As on a system that has no descriptor for it.
TEST(PendingSignal, IsNoticedWithoutADescriptor)
{
    EXPECT_EQ(InChild([] { ExpectNoticed(false); }), 0);
}

TEST(PendingSignal, FromBeforeTheWatchIsNoticed)
{
    const auto work = []
    {
        const wxInitializer framework;
        BlockSignal();
        kill(getpid(), kSignal);
        CWatch watch;
        watch.RunUntilNoticed();
        EXPECT_EQ(watch.notices, 1);
        EXPECT_TRUE(IsPending());
    };
    EXPECT_EQ(InChild(work), 0);
}
