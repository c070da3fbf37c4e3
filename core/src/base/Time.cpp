// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Time.h"

#include <chrono>

namespace KzaCore
{

std::int64_t TimeNowMillis()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch())
        .count();
}

} // namespace KzaCore
