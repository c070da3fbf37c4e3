// SPDX-License-Identifier: Apache-2.0
//
// What the code of public and private keys shares.
//
// Threads: any.

#pragma once

#include "kza_core/Digest.h"

#include <openssl/bio.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <memory>
#include <string_view>

namespace KzaCore
{

struct CFreeKeyPart
{
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(ECDSA_SIG* signature) const { ECDSA_SIG_free(signature); }
};

template <typename T>
using TKeyPart = std::unique_ptr<T, CFreeKeyPart>;

/// Drops the errors that OpenSSL's calls leave while the object exists. Here a
/// failed call is an answer; its error must not show up in a later caller's
/// list.
class CErrorsDropped
{
public:
    CErrorsDropped() { ERR_set_mark(); }
    ~CErrorsDropped() { ERR_pop_to_mark(); }

    CErrorsDropped(const CErrorsDropped&) = delete;
    CErrorsDropped& operator=(const CErrorsDropped&) = delete;
};

/// The bytes as a file, which they outlive; null when memory is short.
inline TKeyPart<BIO> FileOf(std::string_view bytes)
{
    return TKeyPart<BIO>(
        BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

} // namespace KzaCore
