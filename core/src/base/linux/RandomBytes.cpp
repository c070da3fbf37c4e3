// SPDX-License-Identifier: Apache-2.0

#include "base/RandomBytes.h"

#include <sys/random.h>

namespace KzaCore
{

bool FillWithRandomBytes(void* buffer, std::size_t size)
{
    // Up to 256 bytes come whole, and no signal interrupts.
    return getrandom(buffer, size, GRND_NONBLOCK) == static_cast<ssize_t>(size);
}

} // namespace KzaCore
