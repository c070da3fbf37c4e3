// SPDX-License-Identifier: Apache-2.0
//
// The stack on which a thread's signal handlers run, so that a thread whose
// own stack has overflowed can still leave a dump.
//
// Threads: made and destroyed by the thread it serves.

#pragma once

#include <csignal>
#include <cstddef>

namespace KzaCore
{

class CCrashStack
{
public:
    /// Gives the calling thread the stack. Without memory for it the thread
    /// keeps what it had; its crashes still leave a dump unless its stack
    /// overflows.
    CCrashStack();

    /// Gives the thread back the stack it had before.
    ~CCrashStack();

    CCrashStack(const CCrashStack&) = delete;
    CCrashStack& operator=(const CCrashStack&) = delete;

private:
    void* m_mapping;
    std::size_t m_size;
    stack_t m_before = {};
};

} // namespace KzaCore
