// SPDX-License-Identifier: Apache-2.0
//
// The executable and the libraries of the crashed process.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/linux/CrashMaps.h"

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

inline constexpr std::size_t kMaxBuildId = 64;
inline constexpr std::size_t kVersionNumbers = 4;

struct CCrashModule
{
    std::uint64_t base;
    std::uint64_t end;
    const char* path; // of the vdso: the name that debuggers know it by
    std::uint8_t buildId[kMaxBuildId];
    std::size_t buildIdSize;
};

/// Describes the module that begins at a mapping.
///
/// \param mapping  One of `maps`.
///
/// \return false when no module begins there.
bool DescribeModule(const CCrashMaps& maps,
                    const CCrashMapping& mapping,
                    CCrashModule& module);

/// Parses up to four numbers with dots between them, as in "12.0.0.2932";
/// missing ones are 0.
void ParseVersion(const char* text, std::uint16_t (&numbers)[kVersionNumbers]);

/// The version in a library's file name: the part after ".so.", empty without
/// one.
const char* VersionInName(const char* path);

} // namespace KzaCore
