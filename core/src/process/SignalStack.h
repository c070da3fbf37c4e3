// SPDX-License-Identifier: Apache-2.0
//
// The alternate stack on which a thread's signal handlers run. When a thread
// without such a stack overflows its own one, the system cannot run the crash
// handler and ends the process without a dump. Only the thread itself can
// install the stack.
//
// Threads: made and destroyed by the thread that uses the stack.

#pragma once

#include <csignal>
#include <cstddef>

namespace KzaCore
{

class CSignalStack
{
public:
    /// Gives the calling thread the stack. Without memory for it the thread
    /// keeps the alternate stack that it had, if any.
    CSignalStack();

    /// Gives the thread back the alternate stack that it had before.
    ~CSignalStack();

    CSignalStack(const CSignalStack&) = delete;
    CSignalStack& operator=(const CSignalStack&) = delete;

private:
    void* m_mapping;
    std::size_t m_size;
    stack_t m_before = {};
};

} // namespace KzaCore
