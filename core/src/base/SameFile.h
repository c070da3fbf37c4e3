// SPDX-License-Identifier: Apache-2.0
//
// Telling files apart.
//
// Threads: any. May be called in a signal handler and after a fork.

#pragma once

#include <sys/stat.h>

namespace KzaCore
{

/// True when two statuses are of the same file, which may have several names.
[[nodiscard]] inline bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace KzaCore
