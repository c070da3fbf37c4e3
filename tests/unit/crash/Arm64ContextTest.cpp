// SPDX-License-Identifier: Apache-2.0
//
// The registers of aarch64 stand where readers of dumps look for them. The
// offsets are those of the format and not of a structure, so that a change of
// the structure cannot go unnoticed.

#include "crash/linux/aarch64/Arm64Context.h"

#include "crash/MinidumpFile.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

using namespace KzaCore;
using Minidump::EStream;

namespace
{

constexpr std::uint32_t kVectorRecord = 0x46508001;
constexpr std::size_t kVectorRecordSize = 528;

template <typename T>
T At(const Minidump::CContextArm64& context, std::size_t offset)
{
    T value = {};
    std::memcpy(&value, reinterpret_cast<const char*>(&context) + offset,
                sizeof(value));
    return value;
}

// x0 holds 100, x1 holds 101, and so on.
CArm64General General()
{
    CArm64General general = {};
    for (std::size_t i = 0; i < std::size(general.x); i++)
        general.x[i] = 100 + i;
    general.sp = 0xffff00001000;
    general.pc = 0xaaaa00002000;
    general.pstate = 0x60001000;
    return general;
}

void Append(std::string& list, std::uint32_t number)
{
    list.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void AppendRecord(std::string& list, std::uint32_t kind, std::uint32_t size)
{
    const std::size_t end = list.size() + size;
    Append(list, kind);
    Append(list, size);
    list.resize(end);
}

// Register n is filled with n.
void AppendVector(std::string& list)
{
    Append(list, kVectorRecord);
    Append(list, kVectorRecordSize);
    Append(list, 0x11); // fpsr
    Append(list, 0x22); // fpcr
    for (char i = 0; i < 32; i++)
        list.append(16, i);
}

bool Find(const std::string& list, CArm64Vector& vector)
{
    return FindVector(reinterpret_cast<const unsigned char*>(list.data()),
                      list.size(), vector);
}

// A vector register filled with the number of the register.
CArm64Vector Vector()
{
    CArm64Vector vector = {};
    for (std::size_t i = 0; i < std::size(vector.v); i++)
        std::memset(vector.v[i], static_cast<int>(i), sizeof(vector.v[i]));
    vector.fpsr = 0x11;
    vector.fpcr = 0x22;
    return vector;
}

template <typename T>
void AddOne(CMinidumpFile& file, EStream type, const T& entry)
{
    std::string list;
    Append(list, 1);
    list.append(reinterpret_cast<const char*>(&entry), sizeof(entry));
    file.AddStream(type, file.Append(list.data(), list.size()));
}

// A dump of one thread that these registers are all of.
void WriteDump(const std::string& path, const Minidump::CContextArm64& context)
{
    const int descriptor =
        open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    CMinidumpFile file(descriptor);
    Minidump::CSystemInfo system = {};
    system.architecture = Minidump::kArchitectureArm64;
    system.platform = Minidump::kPlatformLinux;
    file.AddStream(EStream::SystemInfo, file.Append(&system, sizeof(system)));
    const char stack[64] = {};
    Minidump::CThread thread = {};
    thread.id = 78;
    thread.context = file.Append(&context, sizeof(context));
    thread.stack = {context.sp, file.Append(stack, sizeof(stack))};
    AddOne(file, EStream::ThreadList, thread);
    AddOne(file, EStream::MemoryList, thread.stack);
    Minidump::CException exception = {};
    exception.threadId = thread.id;
    exception.code = 11;
    exception.context = thread.context;
    file.AddStream(EStream::Exception,
                   file.Append(&exception, sizeof(exception)));
    EXPECT_EQ(file.Finish(0, 0), 0);
    close(descriptor);
}

} // namespace

TEST(Arm64Context, GeneralRegistersAreInTheirPlaces)
{
    const auto context = MakeContext(General(), nullptr);
    EXPECT_EQ(sizeof(context), 796U);
    EXPECT_EQ(At<std::uint64_t>(context, 0), 0x80000002U);
    for (std::size_t i = 0; i < 31; i++)
        EXPECT_EQ(At<std::uint64_t>(context, 8 + i * 8), 100 + i) << i;
    EXPECT_EQ(At<std::uint64_t>(context, 256), 0xffff00001000U);
    EXPECT_EQ(At<std::uint64_t>(context, 264), 0xaaaa00002000U);
    EXPECT_EQ(At<std::uint32_t>(context, 272), 0x60001000U);
}

TEST(Arm64Context, VectorRegistersAreInTheirPlaces)
{
    const CArm64Vector vector = Vector();
    const auto context = MakeContext(General(), &vector);
    EXPECT_EQ(At<std::uint64_t>(context, 0), 0x80000006U);
    EXPECT_EQ(At<std::uint32_t>(context, 276), 0x11U);
    EXPECT_EQ(At<std::uint32_t>(context, 280), 0x22U);
    for (std::size_t i = 0; i < 32; i++)
    {
        EXPECT_EQ(At<std::uint8_t>(context, 284 + i * 16), i);
        EXPECT_EQ(At<std::uint8_t>(context, 284 + i * 16 + 15), i);
    }
}

TEST(Arm64Context, VectorRegistersOfASignalAreFoundAmongOtherRecords)
{
    std::string list;
    AppendRecord(list, 0x45535201, 16); // what the fault was
    AppendVector(list);
    AppendRecord(list, 0, 8);
    CArm64Vector vector = {};
    ASSERT_TRUE(Find(list, vector));
    EXPECT_EQ(vector.fpsr, 0x11U);
    EXPECT_EQ(vector.fpcr, 0x22U);
    EXPECT_EQ(vector.v[0][15], 0);
    EXPECT_EQ(vector.v[31][0], 31);
    EXPECT_EQ(vector.v[31][15], 31);
}

TEST(Arm64Context, ListWithoutVectorRegistersHasNone)
{
    std::string none;
    AppendRecord(none, 0x45535201, 16);
    Append(none, 0);
    Append(none, 0);
    AppendVector(none); // behind the end
    std::string cut;
    AppendVector(cut);
    cut.pop_back();
    std::string small;
    AppendRecord(small, kVectorRecord, 16);
    std::string endless;
    Append(endless, 0x45535201);
    Append(endless, 0);
    AppendVector(endless);
    for (const std::string& list :
         {std::string(), std::string(7, '\0'), none, cut, small, endless})
    {
        CArm64Vector vector = {};
        vector.fpsr = 7;
        EXPECT_FALSE(Find(list, vector));
        EXPECT_EQ(vector.fpsr, 7U);
    }
}

TEST(Arm64Context, DebuggerShowsTheRegisters)
{
    const TestSupport::CTempDir dir;
    const CArm64Vector vector = Vector();
    WriteDump(dir.File("a.mdmp"), MakeContext(General(), &vector));
    const auto result = TestSupport::Run(
        {"/usr/bin/env", "lldb", "-x", "-b", "-c", dir.File("a.mdmp"), "-o",
         "thread list", "-o",
         "register read x0 x28 fp lr sp pc cpsr fpsr fpcr v31"});
    for (const char* line :
         {"(aarch64) was loaded", "tid = 78, 0x0000aaaa00002000",
          "stop reason = signal SIGSEGV", " x0 = 0x0000000000000064\n",
          " x28 = 0x0000000000000080\n", " fp = 0x0000000000000081\n",
          " lr = 0x0000000000000082\n", " sp = 0x0000ffff00001000\n",
          " pc = 0x0000aaaa00002000\n", " cpsr = 0x60001000\n",
          " fpsr = 0x00000011\n", " fpcr = 0x00000022\n",
          " v31 = {0x1f 0x1f 0x1f 0x1f 0x1f 0x1f 0x1f 0x1f 0x1f 0x1f 0x1f "
          "0x1f 0x1f 0x1f 0x1f 0x1f}\n"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << "\n"
                                                            << result.out;
}
