// SPDX-License-Identifier: Apache-2.0
//
// One interface to the linked OpenSSL, for its release lines 1.0, 1.1 and 3.
//
// Threads: the main thread, before others exist and after they have ended.

#pragma once

#include "kza_core/Export.h"

#include <string>

namespace KzaCore
{
namespace OpenSSLCompat
{

/// The error that says "this OpenSSL has no FIPS support", with the code that
/// it has in line 1.0. Later lines have no error of that meaning.
inline constexpr unsigned long kFipsNotSupported = 0x0F06D065;

/// Prepares the library's algorithms, protocols and error texts. As in line
/// 1.0, no configuration file is read now, and none later without an explicit
/// call.
KZA_API void Initialize();

/// Makes every algorithm that is fetched by default a validated one. From line
/// 3 on this loads a provider and its configuration; docs/operations.md names
/// the places where both are looked for.
///
/// Random generators that exist already are not replaced.
///
/// \param root  Directory of the installation, above its libraries; empty when
///              nothing of the installation is to be used.
///
/// \return 0, else the first error: kFipsNotSupported where there is no
///         provider to load. After any other error OpenSSL may be configured
///         in part and must not be used.
[[nodiscard]] KZA_API unsigned long EnterFips(const std::string& root);

/// The text of an error code.
[[nodiscard]] KZA_API std::string ErrorText(unsigned long code);

/// Frees all that the library has for the process and the calling thread, FIPS
/// mode included. Nothing of OpenSSL may be in use any more.
KZA_API void CleanUp();

} // namespace OpenSSLCompat
} // namespace KzaCore
