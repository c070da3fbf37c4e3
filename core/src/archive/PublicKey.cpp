// SPDX-License-Identifier: Apache-2.0

#include "archive/PublicKey.h"

#include "archive/KeyParts.h"
#include "base/Error.h"
#include "base/OpenSSLLine.h"

#include <openssl/crypto.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstring>

namespace KzaCore
{

namespace
{

constexpr int kLeastRsaBits = 3072;

// The parts of one PEM block; the destructor frees them.
struct CPemBlock
{
    CPemBlock() = default;
    ~CPemBlock()
    {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }

    CPemBlock(const CPemBlock&) = delete;
    CPemBlock& operator=(const CPemBlock&) = delete;

    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
};

// The key in the first block, null when that is something else or malformed.
// PEM_read_bio_PUBKEY() is no replacement: it would go on to later blocks, ask
// the terminal for the password of an encrypted block, and ignore bytes that
// follow the key.
TPublicKey Parse(std::string_view pem)
{
    const TKeyPart<BIO> bio = FileOf(pem);
    CPemBlock block;
    if (!bio ||
        PEM_read_bio(bio.get(), &block.name, &block.header, &block.data,
                     &block.size) != 1 ||
        std::strcmp(block.name, PEM_STRING_PUBLIC) != 0 ||
        *block.header != '\0')
        return nullptr;
    const unsigned char* next = block.data;
    TPublicKey key(d2i_PUBKEY(nullptr, &next, block.size), EVP_PKEY_free);
    return next == block.data + block.size ? key : nullptr;
}

#ifdef KZA_OPENSSL_HAS_PROVIDERS

bool IsOnP256(EVP_PKEY* key)
{
    char name[64] = {};
    return EVP_PKEY_get_group_name(key, name, sizeof name, nullptr) == 1 &&
           OBJ_txt2nid(name) == NID_X9_62_prime256v1;
}

#else

bool IsOnP256(EVP_PKEY* key)
{
    const std::unique_ptr<EC_KEY, decltype(&EC_KEY_free)> curve(
        EVP_PKEY_get1_EC_KEY(key), EC_KEY_free);
    return curve && EC_GROUP_get_curve_name(EC_KEY_get0_group(curve.get())) ==
                        NID_X9_62_prime256v1;
}

#endif

const unsigned char* BytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

// True for an ECDSA signature in the only DER encoding of its two numbers. Some
// versions of OpenSSL would verify other encodings, too.
bool IsDer(std::string_view signature)
{
    const unsigned char* next = BytesOf(signature);
    const TKeyPart<ECDSA_SIG> numbers(
        d2i_ECDSA_SIG(nullptr, &next, static_cast<long>(signature.size())));
    unsigned char* der = nullptr;
    const int size = numbers ? i2d_ECDSA_SIG(numbers.get(), &der) : -1;
    const bool isSame =
        size > 0 && static_cast<std::size_t>(size) == signature.size() &&
        std::memcmp(der, signature.data(), signature.size()) == 0;
    OPENSSL_free(der);
    return isSame;
}

bool HasExactForm(EVP_PKEY* key, std::string_view signature)
{
    if (EVP_PKEY_base_id(key) == EVP_PKEY_EC)
        return IsDer(signature);
    return signature.size() == static_cast<std::size_t>(EVP_PKEY_size(key));
}

} // namespace

bool IsPackageKey(EVP_PKEY* key, std::string& error)
{
    switch (EVP_PKEY_base_id(key))
    {
    case EVP_PKEY_EC:
        return IsOnP256(key) || Fail(error, "its curve is not P-256");
    case EVP_PKEY_RSA:
        return EVP_PKEY_bits(key) >= kLeastRsaBits ||
               Fail(error, "it has fewer than " +
                               std::to_string(kLeastRsaBits) + " bits");
    default:
        return Fail(error, "it is neither an ECDSA nor an RSA key");
    }
}

TPublicKey ReadPublicKey(std::string_view pem, std::string& error)
{
    const CErrorsDropped errorsDropped;
    TPublicKey key = Parse(pem);
    if (!key)
    {
        error = "it is no public key";
        return nullptr;
    }
    return IsPackageKey(key.get(), error) ? key : nullptr;
}

bool IsSignature(EVP_PKEY* key,
                 const TDigest& digest,
                 std::string_view signature)
{
    const CErrorsDropped errorsDropped;
    const TKeyPart<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    return HasExactForm(key, signature) && context &&
           EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1 &&
           EVP_PKEY_verify(context.get(), BytesOf(signature), signature.size(),
                           digest.data(), digest.size()) == 1;
}

} // namespace KzaCore
