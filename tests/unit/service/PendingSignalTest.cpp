// SPDX-License-Identifier: Apache-2.0

#include "service/PendingSignal.h"

#include "script/MainLoop.h"

#include "base/SignalSet.h"
#include "support/CollectedLog.h"
#include "support/InChild.h"

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/init.h>

#include <csignal>
#include <cstdlib>
#include <optional>
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

    void Begin() { m_pending.Watch(m_loop); }
    void RunUntilNoticed() { m_loop.Run(); }

    int notices = 0;

private:
    CMainLoopProgress m_progress;
    CMainLoop m_loop;
    CPendingSignal m_pending;
};

// While it lives, the system gives no descriptor.
class CNoDescriptors
{
public:
    CNoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none = {0, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~CNoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

    CNoDescriptors(const CNoDescriptors&) = delete;
    CNoDescriptors& operator=(const CNoDescriptors&) = delete;

private:
    rlimit m_before = {};
};

// Sends the signal to the process while its main thread waits in the loop.
void ExpectNoticed(bool withDescriptor)
{
    const wxInitializer framework;
    const TestSupport::CCollectedLog log;
    BlockSignal();
    CWatch watch;
    {
        std::optional<CNoDescriptors> none;
        if (!withDescriptor)
            none.emplace();
        watch.Begin();
    }
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
        watch.Begin();
        watch.RunUntilNoticed();
        EXPECT_EQ(watch.notices, 1);
        EXPECT_TRUE(IsPending());
    };
    EXPECT_EQ(InChild(work), 0);
}
