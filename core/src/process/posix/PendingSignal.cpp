// SPDX-License-Identifier: Apache-2.0
//
// POSIX tells of pending signals only to who asks again and again.

#include "kza_core/PendingSignal.h"

namespace KzaCore
{

int OpenPendingSignal(int /*signal*/)
{
    return -1;
}

} // namespace KzaCore
