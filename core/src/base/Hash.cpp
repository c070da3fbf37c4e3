// SPDX-License-Identifier: Apache-2.0

#include "base/Hash.h"

#include "base/RandomBytes.h"

#include <chrono>

namespace KzaCore
{

std::uint64_t NewHashSeed()
{
    std::uint64_t seed = 0;
    if (FillWithRandomBytes(&seed, sizeof(seed)))
        return seed;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(now.count()) ^
           reinterpret_cast<std::uintptr_t>(&seed);
}

} // namespace KzaCore
