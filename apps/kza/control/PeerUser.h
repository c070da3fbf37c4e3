// SPDX-License-Identifier: Apache-2.0
//
// The user at the other end of a socket of the Unix domain.
//
// Threads: any.

#pragma once

#include <optional>
#include <sys/types.h>

/// The user of the process that connected, according to the system; unset when
/// the system does not give it.
[[nodiscard]] std::optional<uid_t> PeerUser(int socket);
