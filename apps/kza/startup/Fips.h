// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode, when the configuration asks for it.
//
// Threads: the main thread, before any fork and any other thread, so that the
// daemon, the watchdog and every worker have it.

#pragma once

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Enters FIPS mode when `app.fipsmode` asks for it; logs what came of it.
///
/// \return false when it was refused although this OpenSSL has it: the run
///         must not go on.
[[nodiscard]] bool EnterFipsMode(const KzaCore::CDom& dom);
