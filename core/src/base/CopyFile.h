// SPDX-License-Identifier: Apache-2.0
//
// Copying a file.
//
// Threads: any.

#pragma once

#include <string>

namespace KzaCore
{

/// Copies the bytes of a regular file into a new one, which belongs to the
/// process's user and has the mode 0644. The copy is on disk afterwards.
///
/// \param to  Must not exist.
///
/// \return false with errno set; the copy is removed then.
[[nodiscard]] bool CopyFile(const std::string& from, const std::string& to);

} // namespace KzaCore
