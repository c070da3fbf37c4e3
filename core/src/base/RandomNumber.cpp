// SPDX-License-Identifier: Apache-2.0

#include "base/RandomNumber.h"

#include "base/RandomBytes.h"

#include <chrono>

namespace KzaCore
{

std::uint64_t RandomNumber()
{
    std::uint64_t number = 0;
    if (FillWithRandomBytes(&number, sizeof(number)))
        return number;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(now.count()) ^
           reinterpret_cast<std::uintptr_t>(&number);
}

} // namespace KzaCore
