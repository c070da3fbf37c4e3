// SPDX-License-Identifier: Apache-2.0
//
// The registers of x86-64 stand where the format wants them, from wherever
// they come.

#include "crash/linux/CrashRegisters.h"

#include "crash/MinidumpAmd64.h"
#include "unit/crash/CrashFixture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;
using Minidump::EStream;

namespace
{

class CrashRegisters : public CCrashTest
{
};

Minidump::CContextAmd64 RecordOf(const CCrashRegisters& registers)
{
    Minidump::CContextAmd64 record = {};
    EXPECT_EQ(registers.recordSize, sizeof(record));
    std::memcpy(&record, registers.record, sizeof(record));
    return record;
}

// Each register holds a number of its own: 1 in rax, 2 in rcx, and so on, as
// the processor numbers them.
void ExpectNumbered(const Minidump::CContextAmd64& record)
{
    const std::uint64_t general[] = {
        record.rax, record.rcx, record.rdx, record.rbx, record.rsp, record.rbp,
        record.rsi, record.rdi, record.r8,  record.r9,  record.r10, record.r11,
        record.r12, record.r13, record.r14, record.r15, record.rip};
    for (std::size_t i = 0; i < std::size(general); i++)
        EXPECT_EQ(general[i], i + 1) << i;
    EXPECT_EQ(record.flags, 0x0010000fU);
}

// A child that waits to be traced; it ends with the test.
class CStopped
{
public:
    CStopped() : m_child(fork())
    {
        if (m_child == 0)
        {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            _exit(0);
        }
        waitpid(m_child, nullptr, 0);
    }
    ~CStopped()
    {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }

    CStopped(const CStopped&) = delete;
    CStopped& operator=(const CStopped&) = delete;

    [[nodiscard]] pid_t Id() const { return m_child; }

private:
    pid_t m_child;
};

} // namespace

TEST_F(CrashRegisters, OfTheFaultAreInTheDump)
{
    const int status = Crash(
        []
        {
            asm volatile("movq $0x1234567890abcdef, %%r13\n\t"
                         "movl $0, (%0)"
                         :
                         : "r"(kFaultAddress)
                         : "r13", "memory");
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto system =
        dump.At<Minidump::CSystemInfo>(dump.Stream(EStream::SystemInfo).rva);
    EXPECT_EQ(system.architecture, Minidump::kArchitectureAmd64);
    const auto exception =
        dump.At<Minidump::CException>(dump.Stream(EStream::Exception).rva);
    const auto context =
        dump.At<Minidump::CContextAmd64>(exception.context.rva);
    EXPECT_EQ(context.r13, 0x1234567890abcdefU);
}

TEST_F(CrashRegisters, OfASignalAreInTheirPlaces)
{
    _libc_fpstate floating = {};
    floating.mxcsr = 0x1f80;
    floating._xmm[15].element[3] = 0xabcdef01;
    ucontext_t context = {};
    auto& general = context.uc_mcontext.gregs;
    const int order[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                         REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                         REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    for (std::size_t i = 0; i < std::size(order); i++)
        general[order[i]] = static_cast<greg_t>(i + 1);
    general[REG_CSGSFS] = 0x0044003300220011;
    general[REG_EFL] = 0x246;
    context.uc_mcontext.fpregs = &floating;

    CCrashRegisters registers;
    TakeRegisters(context, registers);
    const Minidump::CContextAmd64 record = RecordOf(registers);
    ExpectNumbered(record);
    EXPECT_EQ(record.cs, 0x11);
    EXPECT_EQ(record.gs, 0x22);
    EXPECT_EQ(record.fs, 0x33);
    EXPECT_EQ(record.ss, 0x44);
    EXPECT_EQ(record.eflags, 0x246U);
    EXPECT_EQ(record.mxcsr, 0x1f80U);
    std::uint32_t last = 0; // of the sixteen vector registers
    std::memcpy(&last, record.floatSave + 160 + 15 * 16 + 12, sizeof(last));
    EXPECT_EQ(last, 0xabcdef01U);
    EXPECT_EQ(registers.stackPointer, record.rsp);
    EXPECT_EQ(registers.instruction, record.rip);
}

TEST_F(CrashRegisters, OfAThreadAreInTheirPlaces)
{
    const CStopped child;
    user_regs_struct general = {};
    ASSERT_EQ(ptrace(PTRACE_GETREGS, child.Id(), nullptr, &general), 0);
    unsigned long long* const order[] = {
        &general.rax, &general.rcx, &general.rdx, &general.rbx, &general.rsp,
        &general.rbp, &general.rsi, &general.rdi, &general.r8,  &general.r9,
        &general.r10, &general.r11, &general.r12, &general.r13, &general.r14,
        &general.r15, &general.rip};
    for (std::size_t i = 0; i < std::size(order); i++)
        *order[i] = i + 1;
    ASSERT_EQ(ptrace(PTRACE_SETREGS, child.Id(), nullptr, &general), 0);

    CCrashRegisters registers;
    ASSERT_TRUE(ReadRegisters(child.Id(), registers));
    const Minidump::CContextAmd64 record = RecordOf(registers);
    ExpectNumbered(record);
    EXPECT_EQ(record.cs, general.cs);
    EXPECT_EQ(record.ss, general.ss);
    EXPECT_EQ(record.eflags, general.eflags);
    EXPECT_EQ(registers.stackPointer, record.rsp);
    EXPECT_EQ(registers.instruction, record.rip);
}

TEST_F(CrashRegisters, OfAThreadThatIsNotTracedAreUnknown)
{
    CCrashRegisters registers;
    EXPECT_FALSE(ReadRegisters(getpid(), registers));
}
