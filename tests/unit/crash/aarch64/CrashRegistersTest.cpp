// SPDX-License-Identifier: Apache-2.0
//
// The registers of aarch64 stand where the format wants them, from wherever
// they come. Arm64ContextTest tells where that is.

#include "crash/linux/CrashRegisters.h"

#include "crash/MinidumpArm64.h"
#include "unit/crash/CrashFixture.h"

using namespace KzaCore;
using namespace TestSupport;
using Minidump::EStream;

namespace
{

class CrashRegisters : public CCrashTest
{
};

} // namespace

TEST_F(CrashRegisters, OfTheFaultAreInTheDump)
{
    const int status = Crash(
        []
        {
            asm volatile("mov x21, #0x5678\n\t"
                         "movk x21, #0x1234, lsl #48\n\t"
                         "fmov d9, #1.0\n\t"
                         "str wzr, [%0]"
                         :
                         : "r"(kFaultAddress)
                         : "x21", "d9", "memory");
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto system =
        dump.At<Minidump::CSystemInfo>(dump.Stream(EStream::SystemInfo).rva);
    EXPECT_EQ(system.architecture, Minidump::kArchitectureArm64);
    const auto exception =
        dump.At<Minidump::CException>(dump.Stream(EStream::Exception).rva);
    const auto context =
        dump.At<Minidump::CContextArm64>(exception.context.rva);
    EXPECT_EQ(context.flags,
              Minidump::kContextArm64General | Minidump::kContextArm64Vector);
    EXPECT_EQ(context.x[21], 0x1234000000005678U);
    double vector = 0;
    std::memcpy(&vector, context.v[9], sizeof(vector));
    EXPECT_EQ(vector, 1.0);
}

TEST_F(CrashRegisters, OfAThreadThatIsNotTracedAreUnknown)
{
    CCrashRegisters registers;
    EXPECT_FALSE(ReadRegisters(getpid(), registers));
}
