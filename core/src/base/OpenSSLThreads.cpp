// SPDX-License-Identifier: Apache-2.0

#include "kza_core/OpenSSLThreads.h"

#include "kza_core/OpenSSLCompat.h"

namespace KzaCore
{

void OpenSSLThreadSetup()
{
    OpenSSLCompat::InstallLocking();
}

void OpenSSLThreadShutdown()
{
    OpenSSLCompat::RemoveLocking();
}

} // namespace KzaCore
