// SPDX-License-Identifier: Apache-2.0
//
// Registers of aarch64.

#include "crash/linux/CrashRegisters.h"

#include "crash/linux/aarch64/Arm64Context.h"

#include <cstddef>
#include <cstring>

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>

namespace KzaCore
{

namespace
{

static_assert(sizeof(CArm64General) == sizeof(user_regs_struct));
static_assert(sizeof(CArm64Vector) == sizeof(user_fpsimd_struct));
static_assert(offsetof(CArm64Vector, fpsr) ==
              offsetof(user_fpsimd_struct, fpsr));

// A signal's context has the same registers in the same order.
static_assert(offsetof(mcontext_t, pstate) - offsetof(mcontext_t, regs) ==
              offsetof(CArm64General, pstate));
static_assert(offsetof(mcontext_t, pc) - offsetof(mcontext_t, regs) ==
              offsetof(CArm64General, pc));

template <typename T>
bool ReadSet(pid_t thread, int which, T& registers)
{
    iovec place = {&registers, sizeof(registers)};
    return ptrace(PTRACE_GETREGSET, thread, which, &place) == 0 &&
           place.iov_len == sizeof(registers);
}

void Keep(const Minidump::CContextArm64& context, CCrashRegisters& registers)
{
    static_assert(sizeof(context) <= sizeof(registers.record));
    std::memcpy(registers.record, &context, sizeof(context));
    registers.recordSize = sizeof(context);
    registers.stackPointer = context.sp;
    registers.instruction = context.pc;
}

} // namespace

bool ReadRegisters(pid_t thread, CCrashRegisters& registers)
{
    CArm64General general = {};
    CArm64Vector vector = {};
    if (!ReadSet(thread, NT_PRSTATUS, general) ||
        !ReadSet(thread, NT_FPREGSET, vector))
        return false;
    Keep(MakeContext(general, &vector), registers);
    return true;
}

void TakeRegisters(const ucontext_t& from, CCrashRegisters& registers)
{
    const mcontext_t& context = from.uc_mcontext;
    CArm64General general = {};
    std::memcpy(&general, &context.regs, sizeof(general));
    CArm64Vector vector = {};
    const bool isFound =
        FindVector(context.__reserved, sizeof(context.__reserved), vector);
    Keep(MakeContext(general, isFound ? &vector : nullptr), registers);
}

void DescribeProcessor(Minidump::CSystemInfo& system)
{
    constexpr std::uint16_t kArchitectureLevel = 8; // ARMv8
    system.architecture = Minidump::kArchitectureArm64;
    system.processorLevel = kArchitectureLevel;
}

} // namespace KzaCore
