// SPDX-License-Identifier: Apache-2.0
//
// timer_create(2) with a signal for one thread. Since Linux 5.10 on x86-64, the
// kernel sends the signal of a CPU timer when the thread returns to its own
// code, so that no system call ends with EINTR because of it.

#include "process/CpuTimer.h"

#include <csignal>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace KzaCore
{

bool StartCpuTimer(std::chrono::nanoseconds period)
{
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGPROF;
    // The C library of Debian 12 has no name for this member.
    event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
    timer_t timer = {};
    if (timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer) != 0)
        return false;

    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(period);
    itimerspec times = {};
    times.it_interval.tv_sec = seconds.count();
    times.it_interval.tv_nsec = (period - seconds).count();
    times.it_value = times.it_interval;
    return timer_settime(timer, 0, &times, nullptr) == 0;
}

} // namespace KzaCore
