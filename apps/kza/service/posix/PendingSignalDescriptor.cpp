// SPDX-License-Identifier: Apache-2.0
//
// POSIX shows pending signals through sigpending() alone, so the caller has to
// check from time to time.

#include "service/PendingSignalDescriptor.h"

int OpenPendingSignal(int /*signal*/)
{
    return -1;
}
