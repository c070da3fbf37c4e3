// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode, when the configuration requests it.
//
// Threads: the main thread, before any fork and any other thread, so that the
// daemon, the watchdog and every worker have it.

#pragma once

class wxString;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Enters FIPS mode when `app.fipsmode` requests it; logs the result.
///
/// \param untrusted  The installation's directory when it must not be trusted,
///                   else empty. OpenSSL's files are then taken only from
///                   places that the environment or the host names.
///
/// \return false when FIPS mode was refused although this OpenSSL has it: the
///         run must not go on.
[[nodiscard]] bool EnterFipsMode(const KzaCore::CDom& dom,
                                 const wxString& untrusted);
