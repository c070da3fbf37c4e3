// SPDX-License-Identifier: Apache-2.0
//
// POSIX has no call for it. The socket's directory, open to its owner alone,
// keeps other users out there.

#include "control/PeerUser.h"

std::optional<uid_t> PeerUser(int)
{
    return std::nullopt;
}
