// SPDX-License-Identifier: Apache-2.0
//
// Signals that end a program, taken by a tool that has something to do first.
//
// Threads: one.

#pragma once

namespace KzaCore
{

struct CTakenSignal
{
    int number;

    /// The system sent it, as at Ctrl-C, and not another process. The whole
    /// process group of the terminal got it then.
    bool fromSystem;
};

/// From now on SIGINT, SIGTERM and SIGHUP do not end the process; they and
/// SIGCHLD are told by NextTakenSignal(). They are let through to the calling
/// thread. A later call changes nothing.
///
/// \return a descriptor that can be read when there is a signal to be told,
///         owned by the process; -1 with errno set.
[[nodiscard]] int TakeSignals();

/// The next signal that has come, in order.
///
/// \param signal  Out: the signal; untouched when the answer is false.
///
/// \return false when there is none.
[[nodiscard]] bool NextTakenSignal(CTakenSignal& signal);

} // namespace KzaCore
