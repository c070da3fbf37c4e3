// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode, when the configuration asks for it.
//
// Threads: the main thread, before any fork and any other thread, so that the
// daemon, the watchdog and every worker have it.

#pragma once

class wxString;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Enters FIPS mode when `app.fipsmode` asks for it; logs what came of it.
///
/// \param untrusted  The installation's directory when nothing may be taken
///                   from it, else empty. Only what the environment and the
///                   host name counts then.
///
/// \return false when it was refused although this OpenSSL has it: the run
///         must not go on.
[[nodiscard]] bool EnterFipsMode(const KzaCore::CDom& dom,
                                 const wxString& untrusted);
