// SPDX-License-Identifier: Apache-2.0
//
// Running another program to its end.
//
// Threads: any.

#pragma once

#include <string>
#include <vector>

namespace KzaCore
{

/// Starts a program, without a shell, and sees it to its end. It has a clean
/// signal state and no descriptor but 0 to 2; what it writes is collected. A
/// program that it leaves behind, with these descriptors open even, is not
/// waited for.
///
/// \param words   The program's path, then its arguments.
/// \param output  Out: its standard output and error, as they came.
///
/// \return its wait status, -1 with errno set when it could not be started.
[[nodiscard]] int RunProgram(const std::vector<std::string>& words,
                             std::string& output);

} // namespace KzaCore
