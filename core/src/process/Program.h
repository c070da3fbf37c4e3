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

/// Starts a program, without a shell, and waits until it has ended. The program
/// gets a clean signal state and no descriptor but 0 to 2; its output is
/// collected. Processes that the program leaves behind are not waited for, even
/// when they keep the output open.
///
/// \param words   The program's path, then its arguments.
/// \param output  Out: its standard output and error, in the order written.
///
/// \return the program's wait status; -1 with errno set when it could not be
///         started.
[[nodiscard]] int RunProgram(const std::vector<std::string>& words,
                             std::string& output);

} // namespace KzaCore
