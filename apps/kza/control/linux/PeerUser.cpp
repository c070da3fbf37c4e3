// SPDX-License-Identifier: Apache-2.0

#include "control/PeerUser.h"

#include <sys/socket.h>

std::optional<uid_t> PeerUser(int socket)
{
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return std::nullopt;
    return peer.uid;
}
