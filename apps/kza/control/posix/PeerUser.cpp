// SPDX-License-Identifier: Apache-2.0
//
// POSIX has no call for the peer's user. On such a system only the socket's
// directory, open to its owner alone, keeps other users out.

#include "control/PeerUser.h"

std::optional<uid_t> PeerUser(int)
{
    return std::nullopt;
}
