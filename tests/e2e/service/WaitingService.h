// SPDX-License-Identifier: Apache-2.0
//
// The application of a service that runs until it is told to stop.

#pragma once

namespace TestSupport
{

inline constexpr char kWaitingMain[] = "return { main = function()"
                                       "  require('mainloop').wait()"
                                       "  dom:Log('message', 'main runs')"
                                       " end }";

// What its log shows then.
inline constexpr char kMainRuns[] = "main runs";

} // namespace TestSupport
