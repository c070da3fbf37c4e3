// SPDX-License-Identifier: Apache-2.0
//
// Keys that tests sign with.

#pragma once

#include <memory>
#include <string>

struct evp_pkey_st;

namespace TestSupport
{

class CSigningKey
{
public:
    /// A new ECDSA key.
    ///
    /// \param curve  As OpenSSL names it.
    static CSigningKey Ecdsa(const std::string& curve = "prime256v1");

    /// A new RSA key.
    static CSigningKey Rsa(int bits = 3072);

    /// The public key, and both keys, as PEM.
    [[nodiscard]] std::string PublicPem() const;
    [[nodiscard]] std::string PrivatePem() const;

    /// The signature of some bytes, over their SHA-256.
    [[nodiscard]] std::string Sign(const std::string& bytes) const;

private:
    explicit CSigningKey(evp_pkey_st* key);

    std::shared_ptr<evp_pkey_st> m_key;
};

} // namespace TestSupport
