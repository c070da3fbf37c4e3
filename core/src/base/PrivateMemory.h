// SPDX-License-Identifier: Apache-2.0
//
// Memory straight from the system, in whole pages.
//
// Threads: any.

#pragma once

#include <cstddef>

namespace KzaCore
{

/// Maps zeroed memory that a child sees a copy of; munmap() gives it back.
///
/// \return MAP_FAILED with errno set when there is none.
[[nodiscard]] void* MapPrivateMemory(std::size_t size);

} // namespace KzaCore
