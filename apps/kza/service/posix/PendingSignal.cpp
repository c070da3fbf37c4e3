// SPDX-License-Identifier: Apache-2.0
//
// POSIX tells of pending signals only to who asks again and again.

#include "service/PendingSignal.h"

int OpenPendingSignal(int /*signal*/)
{
    return -1;
}
