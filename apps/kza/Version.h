// SPDX-License-Identifier: Apache-2.0
//
// The agent's version, once.

#pragma once

namespace Version
{

// Packages and extension archives must match these three; the build number is
// never compared.
inline constexpr int kMajor = 12;
inline constexpr int kMinor = 0;
inline constexpr int kPatch = 0;

inline constexpr char kText[] = "12.0.0.2932";

} // namespace Version
