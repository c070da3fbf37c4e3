// SPDX-License-Identifier: Apache-2.0
//
// Random bytes from the system.
//
// Threads: any.

#pragma once

#include <cstddef>

namespace KzaCore
{

/// Fills a buffer with bytes that no other process can guess. Does not wait:
/// soon after the boot of a host the system may have no random bytes yet.
///
/// \param size  At most 256.
///
/// \return false when there are none; the buffer's content is then undefined.
[[nodiscard]] bool FillWithRandomBytes(void* buffer, std::size_t size);

} // namespace KzaCore
