// SPDX-License-Identifier: Apache-2.0
//
// POSIX tells of a pending signal through sigpending() alone, so the caller has
// to look from time to time.

#include "service/PendingSignalDescriptor.h"

int OpenPendingSignal(int /*signal*/)
{
    return -1;
}
