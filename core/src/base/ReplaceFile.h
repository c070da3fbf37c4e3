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
/// The bytes are written to a new file beside it, which is then renamed. That
/// file has a name that nobody can foresee and so prepare; what should exist
/// under it is neither written to nor followed. A symbolic link at the path is
/// replaced itself. The disk is not waited for.
///
/// \param path  Its new file has the mode 0666 without the umask's bits.
///
/// \return false with errno set; the path is then as it was.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view bytes);

} // namespace KzaCore
