// SPDX-License-Identifier: Apache-2.0
//
// Sets of signals as expressions.
//
// Threads: any. May be called in a signal handler and after a fork.

#pragma once

#include <csignal>
#include <initializer_list>

namespace KzaCore
{

/// The set of these signals; the empty set without one.
[[nodiscard]] inline sigset_t SignalSet(std::initializer_list<int> signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals)
        sigaddset(&set, signal);
    return set;
}

/// The set of all signals but these.
[[nodiscard]] inline sigset_t AllSignalsBut(std::initializer_list<int> signals)
{
    sigset_t set;
    sigfillset(&set);
    for (const int signal : signals)
        sigdelset(&set, signal);
    return set;
}

} // namespace KzaCore
