// SPDX-License-Identifier: Apache-2.0

#include "base/WholeTransfer.h"

#include "base/Descriptor.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

class CPipe
{
public:
    explicit CPipe(int flags = 0)
    {
        std::array<int, 2> ends = {-1, -1};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | flags), 0);
        m_out = CDescriptor(ends[0]);
        m_in = CDescriptor(ends[1]);
    }

    CDescriptor m_out;
    CDescriptor m_in;
};

void NothingCB(int)
{
}

// Interrupts the system calls of this thread while it lives.
class CInterruptions
{
public:
    CInterruptions()
    {
        struct sigaction action = {};
        action.sa_handler = NothingCB; // no SA_RESTART
        sigaction(SIGALRM, &action, &m_before);
        const itimerval often = {{0, 500}, {0, 500}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }

    ~CInterruptions()
    {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &m_before, nullptr);
    }

    CInterruptions(const CInterruptions&) = delete;
    CInterruptions& operator=(const CInterruptions&) = delete;

private:
    struct sigaction m_before = {};
};

// Starts a thread that takes no signals.
template <typename TWork>
std::thread QuietThread(TWork work)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(work);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

// Many times what a pipe holds.
const std::string kLong(4 << 20, 'x');

TEST(WholeTransfer, AWriteGoesOnAfterPartsAndSignals)
{
    CPipe pipe;
    std::string got(kLong.size(), '\0');
    std::thread reader = QuietThread(
        [&]
        {
            for (std::size_t at = 0; at < got.size();)
            {
                const std::size_t most =
                    std::min<std::size_t>(10000, got.size() - at);
                const ssize_t part = read(pipe.m_out.Get(), &got[at], most);
                ASSERT_GT(part, 0);
                at += static_cast<std::size_t>(part);
            }
        });
    {
        const CInterruptions interruptions;
        EXPECT_EQ(WriteWhole(pipe.m_in.Get(), kLong.data(), kLong.size()),
                  kLong.size());
    }
    reader.join();
    EXPECT_TRUE(got == kLong);
}

TEST(WholeTransfer, AReadGoesOnAfterPartsAndSignals)
{
    CPipe pipe;
    std::thread writer = QuietThread(
        [&]
        {
            for (std::size_t at = 0; at < kLong.size(); at += 4096)
                ASSERT_EQ(write(pipe.m_in.Get(), &kLong[at], 4096), 4096);
        });
    std::string got(kLong.size(), '\0');
    {
        const CInterruptions interruptions;
        EXPECT_EQ(ReadWhole(pipe.m_out.Get(), got.data(), got.size()),
                  kLong.size());
    }
    writer.join();
    EXPECT_TRUE(got == kLong);
}

TEST(WholeTransfer, TheEndOfAFileIsNoError)
{
    const CTempDir place;
    WriteFile(place.File("x"), "12345");
    const CDescriptor file(open(place.File("x").c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 10> buffer = {};
    errno = EINVAL;
    EXPECT_EQ(ReadWhole(file.Get(), buffer.data(), buffer.size()), 5U);
    EXPECT_EQ(errno, 0);
    errno = EINVAL;
    EXPECT_EQ(ReadWholeAt(file.Get(), 2, buffer.data(), buffer.size()), 3U);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(buffer[0], '3');
}

TEST(WholeTransfer, AFailedReadHasItsReason)
{
    const CTempDir place;
    const CDescriptor directory(
        open(place.Path().c_str(), O_RDONLY | O_CLOEXEC));
    char byte = 0;
    EXPECT_EQ(ReadWhole(directory.Get(), &byte, 1), 0U);
    EXPECT_EQ(errno, EISDIR);
}

TEST(WholeTransfer, AFailedWriteTellsHowFarItCame)
{
    const CPipe pipe(O_NONBLOCK);
    const std::size_t written =
        WriteWhole(pipe.m_in.Get(), kLong.data(), kLong.size());
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(written, 0U);
    EXPECT_LT(written, kLong.size());

    const CDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(WriteWhole(full.Get(), "x", 1), 0U);
    EXPECT_EQ(errno, ENOSPC);
}

TEST(WholeTransfer, AWriteAtAPlaceLeavesTheRest)
{
    const CTempDir place;
    WriteFile(place.File("x"), "12345");
    const CDescriptor file(open(place.File("x").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(WriteWholeAt(file.Get(), 1, "ab", 2), 2U);
    EXPECT_EQ(ReadFile(place.File("x")), "1ab45");
}

} // namespace
