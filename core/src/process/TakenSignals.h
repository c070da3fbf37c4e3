// SPDX-License-Identifier: Apache-2.0
//
// Receiving the signals that would end a program, for a tool that has work to
// do before its end.
//
// Threads: one.

#pragma once

namespace KzaCore
{

struct CTakenSignal
{
    int number;

    /// The signal was sent by the system, as for Ctrl-C, and not by a process.
    /// All processes of the terminal's process group got it then.
    bool fromSystem;
};

/// From now on SIGINT, SIGTERM and SIGHUP do not end the process, and
/// NextTakenSignal() returns them and SIGCHLD. Unblocks them in the calling
/// thread. A later call changes nothing.
///
/// \return a descriptor, owned by the process, that is readable while a signal
///         is to be returned; -1 with errno set.
[[nodiscard]] int TakeSignals();

/// Returns the signals that have come, in their order.
///
/// \param signal  Out: the signal; untouched when the answer is false.
///
/// \return false when there is none.
[[nodiscard]] bool NextTakenSignal(CTakenSignal& signal);

} // namespace KzaCore
