// SPDX-License-Identifier: Apache-2.0
//
// Numbers by chance.
//
// Threads: any.

#pragma once

#include <cstdint>

namespace KzaCore
{

/// A number that others cannot guess, as long as the system has random bytes;
/// where it has none, at least another one for each process and call.
[[nodiscard]] std::uint64_t RandomNumber();

} // namespace KzaCore
