// SPDX-License-Identifier: Apache-2.0
//
// The time of day.
//
// Threads: any.

#pragma once

#include "kza_core/Export.h"

#include <cstdint>

namespace KzaCore
{

/// Milliseconds since the epoch.
[[nodiscard]] KZA_API std::int64_t TimeNowMillis();

} // namespace KzaCore
