// SPDX-License-Identifier: Apache-2.0
//
// Public keys, and the check of a signature against one.
//
// Threads: any.

#pragma once

#include "kza_core/Digest.h"

#include <memory>
#include <string>
#include <string_view>

struct evp_pkey_st;

namespace KzaCore
{

using TPublicKey = std::shared_ptr<evp_pkey_st>;

/// Reads a key from PEM: the first block must be a public key, ECDSA on the
/// curve P-256 or RSA with 3072 bits and more.
///
/// \param error  Set to the reason after a failure.
///
/// \return null after a failure.
[[nodiscard]] TPublicKey ReadPublicKey(std::string_view pem,
                                       std::string& error);

/// True for a key of a kind by which packages may be signed.
///
/// \param error  Set to the reason after a failure.
[[nodiscard]] bool IsPackageKey(evp_pkey_st* key, std::string& error);

/// True when the bytes are a signature of the digest by the key: the exact
/// bytes that the key makes, without any before or after them.
[[nodiscard]] bool IsSignature(evp_pkey_st* key,
                               const TDigest& digest,
                               std::string_view signature);

} // namespace KzaCore
