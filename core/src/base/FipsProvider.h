// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode where it is a provider: a module that the host's operator places,
// with a configuration that the module's installation wrote. For the lines of
// OpenSSL that have providers.
//
// Threads: the main thread, before others exist and after they have ended.

#pragma once

#include <string>

namespace KzaCore
{

/// Finds the module and its configuration, loads both, and makes the module's
/// algorithms the default ones.
///
/// \param root      Directory of the installation, above its libraries; empty
///                  when nothing of the installation is to be used.
/// \param noModule  The error where there is no module.
///
/// \return 0; `noModule`; else the first error, which names the reason why the
///         module or its configuration was refused.
[[nodiscard]] unsigned long EnterFipsByProvider(const std::string& root,
                                                unsigned long noModule);

/// Leaves FIPS mode. Nothing of OpenSSL may be in use any more.
void ReleaseFipsProvider();

} // namespace KzaCore
