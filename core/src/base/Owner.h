// SPDX-License-Identifier: Apache-2.0
//
// Whether others can change what the process trusts.
//
// Root and the process's own user may own it; nobody else, a group included,
// may be able to write it.
//
// Threads: any.

#pragma once

#include <sys/stat.h>

#include <string>

namespace KzaCore
{

/// True when a user other than root and the process's own can write a file or
/// directory, or may give that right.
///
/// \param status  Of the open descriptor: a path may lead elsewhere by now.
[[nodiscard]] bool CanOthersChange(const struct stat& status);

/// "'PATH' can be changed by others (owner UID, mode MODE)".
[[nodiscard]] std::string ChangeableText(const std::string& path,
                                         const struct stat& status);

} // namespace KzaCore
