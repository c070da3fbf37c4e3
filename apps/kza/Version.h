// SPDX-License-Identifier: Apache-2.0
//
// The agent's version, which the CMakeLists.txt of the project defines.

#pragma once

#include "kza_core/Version.h"

namespace Version
{

// Packages and extension archives must match these three; the build number is
// never compared.
inline constexpr int kMajor = KZA_CORE_VERSION_MAJOR;
inline constexpr int kMinor = KZA_CORE_VERSION_MINOR;
inline constexpr int kPatch = KZA_CORE_VERSION_PATCH;

inline constexpr char kText[] = KZA_CORE_VERSION;

} // namespace Version
