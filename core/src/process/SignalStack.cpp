// SPDX-License-Identifier: Apache-2.0
//
// The alternate signal stack of one thread.

#include "process/SignalStack.h"

#include "base/PrivateMemory.h"

#include <sys/mman.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// The crash handler and its helper use less than 16 KiB; the system puts up to
// 12 KiB of registers there, and sanitizers make frames several times larger.
constexpr std::size_t kStackSize = 128 * 1024;

} // namespace

CSignalStack::CSignalStack()
{
    const auto guard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    m_size = guard + kStackSize;
    m_mapping = MapPrivateMemory(m_size);
    if (m_mapping == MAP_FAILED)
        return;
    // An overflow of the alternate stack must fault and not reach other memory.
    mprotect(m_mapping, guard, PROT_NONE);
    stack_t stack = {};
    stack.ss_sp = static_cast<char*>(m_mapping) + guard;
    stack.ss_size = kStackSize;
    sigaltstack(&stack, &m_before);
}

CSignalStack::~CSignalStack()
{
    if (m_mapping == MAP_FAILED)
        return;
    sigaltstack(&m_before, nullptr);
    munmap(m_mapping, m_size);
}

} // namespace KzaCore
