// SPDX-License-Identifier: Apache-2.0
//
// A listening socket of the Unix domain under a path.
//
// Threads: any.

#pragma once

#include <string>

/// Listens under a path, in the place of a socket on which no process listens
/// any more. Anything else under that path is left alone.
///
/// \param reason  Out, after a failure: why, UTF-8.
///
/// \return a descriptor of the caller's that does not block and is closed on
///         exec; the file has mode 0600. -1 after a failure.
[[nodiscard]] int ListenOn(const std::string& path, std::string& reason);

/// The next connection, as a descriptor of the caller's that does not block and
/// is closed on exec; -1 when there is none.
[[nodiscard]] int AcceptOn(int listening);
