// SPDX-License-Identifier: Apache-2.0
//
// Registers of x86-64.
//
// The debugging interface and the signal's context hold the same registers
// under different names and in a different order. One table maps both.

#include "crash/linux/CrashRegisters.h"

#include "crash/MinidumpAmd64.h"

#include <cpuid.h>
#include <cstring>
#include <new>

#include <sys/ptrace.h>
#include <sys/user.h>

namespace KzaCore
{

namespace
{

using Minidump::CContextAmd64;

struct CRegister
{
    std::uint64_t CContextAmd64::*record;
    unsigned long long user_regs_struct::*debugged;
    int signalled; // its index in the context of a signal
};

constexpr CRegister kRegisters[] = {
    {&CContextAmd64::rax, &user_regs_struct::rax, REG_RAX},
    {&CContextAmd64::rcx, &user_regs_struct::rcx, REG_RCX},
    {&CContextAmd64::rdx, &user_regs_struct::rdx, REG_RDX},
    {&CContextAmd64::rbx, &user_regs_struct::rbx, REG_RBX},
    {&CContextAmd64::rsp, &user_regs_struct::rsp, REG_RSP},
    {&CContextAmd64::rbp, &user_regs_struct::rbp, REG_RBP},
    {&CContextAmd64::rsi, &user_regs_struct::rsi, REG_RSI},
    {&CContextAmd64::rdi, &user_regs_struct::rdi, REG_RDI},
    {&CContextAmd64::r8, &user_regs_struct::r8, REG_R8},
    {&CContextAmd64::r9, &user_regs_struct::r9, REG_R9},
    {&CContextAmd64::r10, &user_regs_struct::r10, REG_R10},
    {&CContextAmd64::r11, &user_regs_struct::r11, REG_R11},
    {&CContextAmd64::r12, &user_regs_struct::r12, REG_R12},
    {&CContextAmd64::r13, &user_regs_struct::r13, REG_R13},
    {&CContextAmd64::r14, &user_regs_struct::r14, REG_R14},
    {&CContextAmd64::r15, &user_regs_struct::r15, REG_R15},
    {&CContextAmd64::rip, &user_regs_struct::rip, REG_RIP},
};

CContextAmd64& NewRecord(CCrashRegisters& registers)
{
    static_assert(sizeof(CContextAmd64) <= kMaxRegistersRecord);
    registers.recordSize = sizeof(CContextAmd64);
    auto* record = new (registers.record) CContextAmd64();
    record->flags = Minidump::kContextAmd64;
    return *record;
}

void Locate(const CContextAmd64& record, CCrashRegisters& registers)
{
    registers.stackPointer = record.rsp;
    registers.instruction = record.rip;
}

} // namespace

bool ReadRegisters(pid_t thread, CCrashRegisters& registers)
{
    user_regs_struct general = {};
    user_fpregs_struct floating = {};
    if (ptrace(PTRACE_GETREGS, thread, nullptr, &general) != 0 ||
        ptrace(PTRACE_GETFPREGS, thread, nullptr, &floating) != 0)
        return false;
    CContextAmd64& record = NewRecord(registers);
    for (const CRegister& one : kRegisters)
        record.*one.record = general.*one.debugged;
    record.cs = static_cast<std::uint16_t>(general.cs);
    record.ds = static_cast<std::uint16_t>(general.ds);
    record.es = static_cast<std::uint16_t>(general.es);
    record.fs = static_cast<std::uint16_t>(general.fs);
    record.gs = static_cast<std::uint16_t>(general.gs);
    record.ss = static_cast<std::uint16_t>(general.ss);
    record.eflags = static_cast<std::uint32_t>(general.eflags);
    record.mxcsr = floating.mxcsr;
    static_assert(sizeof(floating) == sizeof(record.floatSave));
    std::memcpy(record.floatSave, &floating, sizeof(floating));
    Locate(record, registers);
    return true;
}

void TakeRegisters(const ucontext_t& from, CCrashRegisters& registers)
{
    const auto& general = from.uc_mcontext.gregs;
    const auto* floating = from.uc_mcontext.fpregs;
    CContextAmd64& record = NewRecord(registers);
    for (const CRegister& one : kRegisters)
        record.*one.record = static_cast<std::uint64_t>(general[one.signalled]);
    // Four segment registers share one word, 16 bits each.
    const auto segments = static_cast<std::uint64_t>(general[REG_CSGSFS]);
    record.cs = static_cast<std::uint16_t>(segments);
    record.gs = static_cast<std::uint16_t>(segments >> 16U);
    record.fs = static_cast<std::uint16_t>(segments >> 32U);
    record.ss = static_cast<std::uint16_t>(segments >> 48U);
    record.eflags = static_cast<std::uint32_t>(general[REG_EFL]);
    Locate(record, registers);
    if (floating == nullptr)
        return;
    record.mxcsr = floating->mxcsr;
    static_assert(sizeof(*floating) == sizeof(record.floatSave));
    std::memcpy(record.floatSave, floating, sizeof(*floating));
}

void DescribeProcessor(Minidump::CSystemInfo& system)
{
    system.architecture = Minidump::kArchitectureAmd64;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    if (__get_cpuid(0, &a, &b, &c, &d) == 0)
        return;
    system.processor[0] = b; // the three parts of the vendor's name
    system.processor[1] = d;
    system.processor[2] = c;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0)
        return;
    system.processor[3] = a;
    system.processor[4] = d;
    const unsigned family = (a >> 8U & 0xfU) + (a >> 20U & 0xffU);
    const unsigned model = (a >> 4U & 0xfU) + (a >> 12U & 0xf0U);
    system.processorLevel = static_cast<std::uint16_t>(family);
    system.processorRevision =
        static_cast<std::uint16_t>(model << 8U | (a & 0xfU));
}

} // namespace KzaCore
