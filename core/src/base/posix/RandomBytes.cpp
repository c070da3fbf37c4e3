// SPDX-License-Identifier: Apache-2.0
//
// POSIX names no source of random bytes; all its systems have this device.

#include "base/RandomBytes.h"

#include "base/Descriptor.h"
#include "base/WholeTransfer.h"

#include <fcntl.h>

namespace KzaCore
{

bool FillWithRandomBytes(void* buffer, std::size_t size)
{
    const CDescriptor device(
        open("/dev/urandom", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return device.IsOpen() && ReadWhole(device.Get(), buffer, size) == size;
}

} // namespace KzaCore
