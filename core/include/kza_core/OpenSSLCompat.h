// SPDX-License-Identifier: Apache-2.0
//
// The linked OpenSSL, in the same words for its lines 1.0, 1.1 and 3.
//
// Threads: the main thread, before others exist and after they have ended.

#pragma once

#include "kza_core/Export.h"

#include <string>

namespace KzaCore
{
namespace OpenSSLCompat
{

/// The error that says "this OpenSSL has no FIPS support", packed as the line
/// 1.0 does it. Later lines have no error of that meaning.
inline constexpr unsigned long kFipsNotSupported = 0x0F06D065;

/// Prepares the library's algorithms, protocols and error texts. No
/// configuration file is read, and none will be read later without being asked
/// for, as line 1.0 does it.
KZA_API void Initialize();

/// Makes every algorithm that is fetched by default a validated one. From line
/// 3 on this loads a provider and the configuration that goes with it; where
/// both are looked for is told in docs/operations.md.
///
/// Random generators made before stay where they are.
///
/// \param root  Directory of the installation, above its libraries; empty when
///              nothing of the installation is to be used.
///
/// \return 0, else the first error: kFipsNotSupported where there is no
///         provider to load. What an error leaves in force must not be worked
///         with, unless it is that one.
[[nodiscard]] KZA_API unsigned long EnterFips(const std::string& root);

/// The text of an error code.
[[nodiscard]] KZA_API std::string ErrorText(unsigned long code);

/// Frees what the library holds for the process and the calling thread, FIPS
/// mode included. Nothing of OpenSSL may be in use any more.
KZA_API void CleanUp();

} // namespace OpenSSLCompat
} // namespace KzaCore
