// SPDX-License-Identifier: Apache-2.0
//
// The public minidump format: the records that the agent's dumps use, named as
// in the format. Registers have a header for each processor.
//
// Numbers are little-endian and packed to four bytes. A location is an offset
// from the start of the file ("rva").
//
// Threads: none of it has state.

#pragma once

#include <cstdint>

namespace KzaCore::Minidump
{

inline constexpr std::uint32_t kSignature = 0x504d444d; // "MDMP"
inline constexpr std::uint32_t kVersion = 0x0000a793;
inline constexpr std::uint64_t kWithFullMemory = 0x2;

inline constexpr std::uint32_t kPlatformLinux = 0x8201;
inline constexpr std::uint32_t kMiscHasProcessId = 1;

// A module's identity: the build identifier that the linker put into it.
inline constexpr std::uint32_t kCvElfBuildId = 0x4270454c;

enum class EStream : std::uint32_t
{
    ThreadList = 3,
    ModuleList = 4,
    MemoryList = 5,
    Exception = 6,
    SystemInfo = 7,
    Memory64List = 9,
    CommentA = 10, // the note: plain text, see docs/crash_dumps.md
    MiscInfo = 15,
    LinuxCpuInfo = 0x47670003,
    LinuxProcStatus = 0x47670004,
    LinuxCmdLine = 0x47670006,
    LinuxAuxv = 0x47670008,
    LinuxMaps = 0x47670009,
};

#pragma pack(push, 4)

struct CLocation
{
    std::uint32_t size;
    std::uint32_t rva;
};

struct CHeader
{
    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t streamCount;
    std::uint32_t directoryRva;
    std::uint32_t checkSum;
    std::uint32_t time; // seconds since the epoch
    std::uint64_t flags;
};

struct CDirectory
{
    EStream type;
    CLocation location;
};

struct CMemoryDescriptor
{
    std::uint64_t start;
    CLocation memory;
};

struct CMemoryDescriptor64
{
    std::uint64_t start;
    std::uint64_t size;
};

struct CMemory64Head
{
    std::uint64_t count;
    std::uint64_t baseRva; // the ranges' bytes follow one another from here
};

struct CThread
{
    std::uint32_t id;
    std::uint32_t suspendCount;
    std::uint32_t priorityClass;
    std::uint32_t priority;
    std::uint64_t environmentBlock;
    CMemoryDescriptor stack;
    CLocation context;
};

struct CFixedFileInfo
{
    std::uint32_t signature;
    std::uint32_t structVersion;
    std::uint32_t fileVersionHigh; // first number << 16 | second
    std::uint32_t fileVersionLow;  // third number << 16 | fourth
    std::uint32_t productVersionHigh;
    std::uint32_t productVersionLow;
    std::uint32_t unused[7];
};

inline constexpr std::uint32_t kFixedFileInfoSignature = 0xfeef04bd;
inline constexpr std::uint32_t kFixedFileInfoVersion = 0x00010000;

struct CModule
{
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t checkSum;
    std::uint32_t time;
    std::uint32_t nameRva;
    CFixedFileInfo version;
    CLocation cvRecord;
    CLocation miscRecord;
    std::uint64_t reserved[2];
};

struct CException
{
    std::uint32_t threadId;
    std::uint32_t alignment;
    std::uint32_t code;  // the signal
    std::uint32_t flags; // its code, si_code
    std::uint64_t nested;
    std::uint64_t address; // si_addr
    std::uint32_t parameterCount;
    std::uint32_t alignment2;
    std::uint64_t parameters[15];
    CLocation context;
};

struct CSystemInfo
{
    std::uint16_t architecture;
    std::uint16_t processorLevel;
    std::uint16_t processorRevision;
    std::uint8_t processorCount;
    std::uint8_t productType;
    std::uint32_t majorVersion;
    std::uint32_t minorVersion;
    std::uint32_t buildNumber;
    std::uint32_t platform;
    std::uint32_t versionTextRva;
    std::uint16_t suite;
    std::uint16_t reserved;
    std::uint32_t processor[6];
};

struct CMiscInfo
{
    std::uint32_t size;
    std::uint32_t flags;
    std::uint32_t processId;
    std::uint32_t createTime;
    std::uint32_t userTime;
    std::uint32_t kernelTime;
};

#pragma pack(pop)

static_assert(sizeof(CHeader) == 32);
static_assert(sizeof(CDirectory) == 12);
static_assert(sizeof(CMemoryDescriptor) == 16);
static_assert(sizeof(CThread) == 48);
static_assert(sizeof(CFixedFileInfo) == 52);
static_assert(sizeof(CModule) == 108);
static_assert(sizeof(CException) == 168);
static_assert(sizeof(CSystemInfo) == 56);
static_assert(sizeof(CMiscInfo) == 24);

} // namespace KzaCore::Minidump
