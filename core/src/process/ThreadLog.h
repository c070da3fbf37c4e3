// SPDX-License-Identifier: Apache-2.0
//
// The log target of the program's threads.
//
// The framework keeps the records of a thread without a target of its own until
// the main thread is idle, and loses them when the thread ends the process.
// CRunnable therefore gives its thread a target. The folder of the log lies
// above this one, which must not include from it; so the log registers the
// target here.
//
// Threads: any.

#pragma once

class wxLog;

namespace KzaCore
{

/// Registers the target for the life of the process. The log has one static
/// object of this class, in the source of the target.
class CThreadLogTarget
{
public:
    /// \param target  Returns an object that all threads may use at once and
    ///                that is never deleted. Called on each new thread.
    explicit CThreadLogTarget(wxLog* (*target)()) noexcept;

    CThreadLogTarget(const CThreadLogTarget&) = delete;
    CThreadLogTarget& operator=(const CThreadLogTarget&) = delete;
};

/// The registered target; null before the registration.
wxLog* ThreadLogTarget();

} // namespace KzaCore
