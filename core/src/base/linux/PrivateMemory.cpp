// SPDX-License-Identifier: Apache-2.0

#include "base/PrivateMemory.h"

#include <sys/mman.h>

namespace KzaCore
{

void* MapPrivateMemory(std::size_t size)
{
    return mmap(nullptr, size, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

} // namespace KzaCore
