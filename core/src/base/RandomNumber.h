// SPDX-License-Identifier: Apache-2.0
//
// Random numbers.
//
// Threads: any.

#pragma once

#include <cstdint>

namespace KzaCore
{

/// A number that other processes cannot guess. Where the system has no random
/// bytes, the number is made from the clock and an address instead: it differs
/// between processes and calls, but may be guessed.
[[nodiscard]] std::uint64_t RandomNumber();

} // namespace KzaCore
