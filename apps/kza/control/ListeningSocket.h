// SPDX-License-Identifier: Apache-2.0
//
// A listening socket of the Unix domain under a path.
//
// Threads: any.

#pragma once

#include <string>

/// Listens under a path. Replaces a socket on which no process listens any
/// more; fails when the path is anything else.
///
/// \param reason  Out, after a failure: the reason, UTF-8.
///
/// \return a descriptor, owned by the caller, that does not block and is closed
///         on exec; the file has mode 0600. -1 after a failure.
[[nodiscard]] int ListenOn(const std::string& path, std::string& reason);

/// Accepts the next connection.
///
/// \return a descriptor, owned by the caller, that does not block and is closed
///         on exec; -1 when no connection waits.
[[nodiscard]] int AcceptOn(int listening);
