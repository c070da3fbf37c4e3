// SPDX-License-Identifier: Apache-2.0
//
// The stack on which a thread's signal handlers run. A thread without one that
// overflows its own stack leaves no crash dump: the system cannot run the
// handler and ends the process. Only the thread itself can ask for the stack.
//
// Threads: made and destroyed by the thread it serves.

#pragma once

#include <csignal>
#include <cstddef>

namespace KzaCore
{

class CSignalStack
{
public:
    /// Gives the calling thread the stack. Without memory for it the thread
    /// keeps what it had.
    CSignalStack();

    /// Gives the thread back the stack it had before.
    ~CSignalStack();

    CSignalStack(const CSignalStack&) = delete;
    CSignalStack& operator=(const CSignalStack&) = delete;

private:
    void* m_mapping;
    std::size_t m_size;
    stack_t m_before = {};
};

} // namespace KzaCore
