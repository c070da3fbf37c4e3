// SPDX-License-Identifier: Apache-2.0
//
// Programs that run in the foreground beside the process that starts them.
//
// Threads: any. The thread that starts a child should live as long as the
// process: some systems take its end for that of the parent.

#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace KzaCore
{

/// Starts a program in the process group of the caller, with its standard
/// streams and a clean signal state. Descriptors that do not close on exec go
/// along. Where the system can do that (see EndWithParent()), the program gets
/// SIGINT when the caller ends.
///
/// \param words  The program's path, then its arguments; not empty.
///
/// \return the child, which the caller reaps; -1 with errno set when it could
///         not be started.
[[nodiscard]] pid_t StartChild(const std::vector<std::string>& words);

} // namespace KzaCore
