// SPDX-License-Identifier: Apache-2.0
//
// The width of the terminal that a program writes to.
//
// Threads: any.

#pragma once

namespace KzaCore
{

/// How many characters a line of the terminal behind a descriptor has; 0 when
/// there is no terminal or the system cannot tell.
[[nodiscard]] int TerminalWidth(int descriptor);

} // namespace KzaCore
