// SPDX-License-Identifier: Apache-2.0
//
// Private keys, by which packages are signed.
//
// Threads: any.

#pragma once

#include <string>
#include <string_view>

namespace KzaCore
{

/// A key in its two files, as PEM.
struct CKeyPair
{
    std::string privateKey; ///< PKCS#8, without a password
    std::string publicKey;
};

/// Makes a new ECDSA key on the curve P-256.
///
/// \param error  Set to the reason after a failure.
[[nodiscard]] bool MakeKeyPair(CKeyPair& keys, std::string& error);

/// Makes the signature of a file as `openssl dgst -sha256 -sign` does.
///
/// \param file        Path of a regular file.
/// \param privateKey  PEM, in any form that OpenSSL reads without a password;
///                    of a kind by which packages may be signed.
/// \param error       Set to the reason after a failure; names no file.
[[nodiscard]] bool SignFile(const std::string& file,
                            std::string_view privateKey,
                            std::string& signature,
                            std::string& error);

} // namespace KzaCore
