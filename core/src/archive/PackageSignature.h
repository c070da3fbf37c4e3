// SPDX-License-Identifier: Apache-2.0
//
// The check of a package's signature.
//
// Threads: any.

#pragma once

#include "archive/FileSeal.h"
#include "kza_core/PackageKeys.h"

#include <string>

namespace KzaCore
{

class COpenedFile;

/// Checks that a package is signed by one of the keys.
///
/// \param package    Open. It is read once, as bytes: it need not be an
///                   archive.
/// \param signature  Its signature; null or not open when there is none.
/// \param keys       The keys whose signatures count.
/// \param seal       Out: sealed with the package's content, so that later
///                   reads through it give the bytes that were checked.
/// \param signer     Out: see CPackageKeys::SignerOf().
/// \param error      Set to the reason after a failure.
[[nodiscard]] bool CheckSignature(const COpenedFile& package,
                                  const COpenedFile* signature,
                                  const CPackageKeys& keys,
                                  CFileSeal& seal,
                                  std::string& signer,
                                  std::string& error);

} // namespace KzaCore
