// SPDX-License-Identifier: Apache-2.0
//
// POSIX has no mapping without a file; all its systems have this device.

#include "base/PrivateMemory.h"

#include "base/Descriptor.h"

#include <fcntl.h>
#include <sys/mman.h>

namespace KzaCore
{

void* MapPrivateMemory(std::size_t size)
{
    const CDescriptor zero(open("/dev/zero", O_RDWR | O_CLOEXEC));
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, zero.Get(),
                0);
}

} // namespace KzaCore
