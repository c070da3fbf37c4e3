// SPDX-License-Identifier: Apache-2.0

#include "support/SigningKey.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <functional>
#include <stdexcept>

namespace TestSupport
{

namespace
{

using TContext = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

void Require(bool isTrue)
{
    if (!isTrue)
        throw std::runtime_error("OpenSSL makes no key or signature");
}

EVP_PKEY* Generate(int type, const std::function<int(EVP_PKEY_CTX*)>& choose)
{
    const TContext context(EVP_PKEY_CTX_new_id(type, nullptr),
                           EVP_PKEY_CTX_free);
    EVP_PKEY* key = nullptr;
    Require(context && EVP_PKEY_keygen_init(context.get()) == 1 &&
            choose(context.get()) == 1 &&
            EVP_PKEY_keygen(context.get(), &key) == 1);
    return key;
}

std::string Written(const std::function<int(BIO*)>& write)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()),
                                                        BIO_free);
    Require(bio && write(bio.get()) == 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

} // namespace

CSigningKey::CSigningKey(EVP_PKEY* key) : m_key(key, EVP_PKEY_free)
{
}

CSigningKey CSigningKey::Ecdsa(const std::string& curve)
{
    return CSigningKey(
        Generate(EVP_PKEY_EC,
                 [&](EVP_PKEY_CTX* context)
                 {
                     return EVP_PKEY_CTX_set_ec_paramgen_curve_nid(
                         context, OBJ_txt2nid(curve.c_str()));
                 }));
}

CSigningKey CSigningKey::Rsa(int bits)
{
    return CSigningKey(
        Generate(EVP_PKEY_RSA, [&](EVP_PKEY_CTX* context)
                 { return EVP_PKEY_CTX_set_rsa_keygen_bits(context, bits); }));
}

std::string CSigningKey::PublicPem() const
{
    return Written([&](BIO* bio)
                   { return PEM_write_bio_PUBKEY(bio, m_key.get()); });
}

std::string CSigningKey::PrivatePem() const
{
    return Written(
        [&](BIO* bio)
        {
            return PEM_write_bio_PKCS8PrivateKey(bio, m_key.get(), nullptr,
                                                 nullptr, 0, nullptr, nullptr);
        });
}

std::string CSigningKey::Sign(const std::string& bytes) const
{
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(
        EVP_MD_CTX_create(), [](EVP_MD_CTX* c) { EVP_MD_CTX_destroy(c); });
    std::size_t size = 0;
    Require(context &&
            EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr,
                               m_key.get()) == 1 &&
            EVP_DigestSignUpdate(context.get(), bytes.data(), bytes.size()) ==
                1 &&
            EVP_DigestSignFinal(context.get(), nullptr, &size) == 1);
    std::string signature(size, '\0');
    Require(
        EVP_DigestSignFinal(context.get(),
                            reinterpret_cast<unsigned char*>(signature.data()),
                            &size) == 1);
    signature.resize(size);
    return signature;
}

} // namespace TestSupport
