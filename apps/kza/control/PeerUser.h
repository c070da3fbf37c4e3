// SPDX-License-Identifier: Apache-2.0
//
// Who is at the other end of a socket of the Unix domain.
//
// Threads: any.

#pragma once

#include <optional>
#include <sys/types.h>

/// The user of the process that connected, as the system attests it; unset when
/// the system cannot tell.
[[nodiscard]] std::optional<uid_t> PeerUser(int socket);
