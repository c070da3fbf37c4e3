// SPDX-License-Identifier: Apache-2.0
//
// Writing a file whole.
//
// Threads: any.

#pragma once

#include <string>
#include <string_view>

namespace KzaCore
{

/// Puts a file with these bytes in the place of a path, so that a reader finds
/// either the old content or the new, whole.
///
/// The bytes are written to a new file in the same directory, which is then
/// renamed. The new file's first name is random, so that other users cannot
/// prepare a file or link under it; where one exists, the call fails and leaves
/// it alone. A symbolic link at the path is replaced itself. The call does not
/// wait for the disk.
///
/// \param path  The file has the mode 0666 without the umask's bits afterwards.
///
/// \return false with errno set; the path is then as it was.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view bytes);

} // namespace KzaCore
