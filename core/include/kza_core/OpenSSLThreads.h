// SPDX-License-Identifier: Apache-2.0
//
// OpenSSL's locking support for several threads.
//
// Threads: the main thread; each call once per process.

#pragma once

#include "kza_core/Export.h"

namespace KzaCore
{

/// Installs the locking callbacks where the linked OpenSSL needs them; newer
/// generations lock by themselves.
KZA_API void OpenSSLThreadSetup();

/// Removes what OpenSSLThreadSetup() installed.
KZA_API void OpenSSLThreadShutdown();

} // namespace KzaCore
