// SPDX-License-Identifier: Apache-2.0
//
// Whether other users can change a file or directory that the process trusts.
//
// Root and the process's own user may own it; no other user and no group may
// have the right to write it.
//
// Threads: any.

#pragma once

#include <sys/stat.h>

#include <string>

namespace KzaCore
{

/// True when a user other than root and the process's own can write a file or
/// directory, or can grant the right to write it.
///
/// \param status  Of the open descriptor, because the path may lead to another
///                file by now.
[[nodiscard]] bool CanOthersChange(const struct stat& status);

/// "'PATH' can be changed by others (owner UID, mode MODE)".
[[nodiscard]] std::string ChangeableText(const std::string& path,
                                         const struct stat& status);

} // namespace KzaCore
