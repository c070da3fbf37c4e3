// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Runnable.h"

#include "support/DomPtr.h"
#include "support/Process.h"

#include <gtest/gtest.h>
#include <wx/init.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

using KzaCore::CRunnable;
using std::chrono::milliseconds;
using std::chrono::minutes;

namespace
{

class CTask : public CRunnable
{
public:
    explicit CTask(std::function<void(CTask&)> work)
        : CRunnable(false, -1, false), m_work(std::move(work))
    {
    }

    void OnRun() override { m_work(*this); }

private:
    std::function<void(CTask&)> m_work;
};

class Runnable : public ::testing::Test
{
    const wxInitializer m_framework; // its threads need it
};

TEST_F(Runnable, RunsOnceAndIsJoined)
{
    int runs = 0;
    CTask task([&runs](CTask&) { ++runs; });
    ASSERT_TRUE(task.start(50, true, 0));
    task.join();
    EXPECT_EQ(runs, 1);
    task.join(); // a second time does nothing
}

TEST_F(Runnable, WorksWithTheDomainThatItWasGiven)
{
    const TestSupport::DomPtr dom = TestSupport::NewDom();
    KzaCore::CDom* seen = nullptr;
    CTask task([&seen](CTask& self) { seen = self.GetDom(); });
    task.SetDom(dom.get());
    ASSERT_TRUE(task.start(50, true, 0));
    task.join();
    EXPECT_EQ(seen, dom.get());
}

TEST_F(Runnable, JoinWithoutAStartReturns)
{
    CTask task([](CTask&) {});
    task.join();
}

TEST_F(Runnable, ExitRequestCutsASleepShort)
{
    bool wholeSleep = true;
    CTask task([&wholeSleep](CTask&)
               { wholeSleep = CRunnable::SleepFor(minutes(10)); });
    ASSERT_TRUE(task.start(50, true, 0));
    task.requestExit();
    task.join();
    EXPECT_FALSE(wholeSleep);
}

TEST_F(Runnable, ExitRequestIsSeenByTestDestroy)
{
    std::atomic<bool> before{true};
    std::atomic<bool> looked{false};
    CTask task(
        [&](CTask& self)
        {
            before = self.TestDestroy();
            looked = true;
            bool requested = false;
            while (!self.TestDestroy(1000, &requested))
            {
            }
            EXPECT_TRUE(requested);
        });
    ASSERT_TRUE(task.start(50, true, 0));
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return looked.load(); }));
    task.requestExit();
    task.join();
    EXPECT_FALSE(before);
}

TEST_F(Runnable, AnnouncedStopCutsOneSleepUntilItIsWithdrawn)
{
    std::atomic<bool> runs{false};
    bool cut = true;
    bool later = true;
    bool afterwards = false;
    CTask task(
        [&](CTask& self)
        {
            runs = true;
            cut = CRunnable::SleepFor(minutes(10));
            later = CRunnable::SleepFor(milliseconds(1));
            EXPECT_FALSE(self.TestDestroy());
            self.WithdrawStop();
            afterwards = CRunnable::SleepFor(milliseconds(1));
        });
    ASSERT_TRUE(task.start(50, true, 0));
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return runs.load(); }));
    task.AnnounceStop();
    task.join();
    EXPECT_FALSE(cut);
    EXPECT_FALSE(later);
    EXPECT_TRUE(afterwards);
}

// A read in a script would fail with "Interrupted system call".
TEST_F(Runnable, AnnouncedStopSendsNoSignal)
{
    static std::atomic<int> s_signals{0};
    s_signals = 0;
    struct sigaction counting
    {
    };
    struct sigaction before
    {
    };
    counting.sa_handler = [](int) { ++s_signals; };
    ASSERT_EQ(sigaction(CRunnable::SigThreadDelete, &counting, &before), 0);
    std::atomic<bool> runs{false};
    CTask task(
        [&runs](CTask&)
        {
            runs = true;
            CRunnable::SleepFor(minutes(10));
        });
    ASSERT_TRUE(task.start(50, true, 0));
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return runs.load(); }));
    task.AnnounceStop();
    task.join();
    EXPECT_EQ(s_signals, 0);
    ASSERT_EQ(sigaction(CRunnable::SigThreadDelete, &before, nullptr), 0);
}

TEST_F(Runnable, InterruptEndsABlockingCall)
{
    std::atomic<bool> ended{false};
    int error = 0;
    CTask task(
        [&](CTask&)
        {
            if (poll(nullptr, 0, -1) < 0)
                error = errno;
            ended = true;
        });
    ASSERT_TRUE(task.start(50, true, 0));
    // The signal may come before the call; it is sent until it has hit.
    ASSERT_TRUE(TestSupport::WaitUntil(
        [&]
        {
            task.interrupt();
            return ended.load();
        }));
    task.join();
    EXPECT_EQ(error, EINTR);
}

TEST_F(Runnable, AnEndedThreadMayBeAskedForAnything)
{
    CTask task([](CTask&) {});
    ASSERT_TRUE(task.start(50, true, 0));
    task.join();
    task.interrupt();
    task.Awaken();
    task.AnnounceStop();
    task.WithdrawStop();
    task.requestExit();
    EXPECT_TRUE(task.TestDestroy());
}

TEST_F(Runnable, DeleteAsksAndWaits)
{
    std::atomic<bool> ended{false};
    CTask task(
        [&ended](CTask&)
        {
            CRunnable::SleepFor(minutes(10));
            ended = true;
        });
    ASSERT_TRUE(task.start(50, true, 0));
    EXPECT_EQ(task.Delete(nullptr), wxTHREAD_NO_ERROR);
    EXPECT_TRUE(ended);
}

TEST_F(Runnable, TheWakeUpSignalLeavesAnInstalledHandlerAlone)
{
    struct sigaction mine
    {
    };
    struct sigaction before
    {
    };
    mine.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(CRunnable::SigThreadDelete, &mine, &before), 0);
    CTask task([](CTask&) {});
    ASSERT_TRUE(task.start(50, true, 0));
    task.join();
    struct sigaction now
    {
    };
    ASSERT_EQ(sigaction(CRunnable::SigThreadDelete, &before, &now), 0);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
}

TEST_F(Runnable, TheWakeUpSignalIsARealTimeOne)
{
    EXPECT_GE(CRunnable::SigThreadDelete, SIGRTMIN);
    EXPECT_LE(CRunnable::SigThreadDelete, SIGRTMAX);
}

} // namespace
