// SPDX-License-Identifier: Apache-2.0

#include "archive/PrivateKey.h"

#include "archive/FileSeal.h"
#include "archive/KeyParts.h"
#include "archive/PublicKey.h"
#include "base/Error.h"
#include "kza_core/OpenedFile.h"

#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/pem.h>

namespace KzaCore
{

namespace
{

// Takes the place of a prompt on the terminal.
int RefusePasswordCB(char* /*buffer*/, int /*size*/, int /*rw*/, void* asked)
{
    *static_cast<bool*>(asked) = true;
    return 0;
}

TKeyPart<EVP_PKEY> Parse(std::string_view pem, std::string& error)
{
    bool isEncrypted = false;
    const TKeyPart<BIO> file = FileOf(pem);
    TKeyPart<EVP_PKEY> key(file ? PEM_read_bio_PrivateKey(file.get(), nullptr,
                                                          RefusePasswordCB,
                                                          &isEncrypted)
                                : nullptr);
    if (!key)
        error = isEncrypted ? "it is protected by a password"
                            : "it is no private key";
    return key;
}

TKeyPart<EVP_PKEY> Generate()
{
    EVP_PKEY* key = nullptr;
    const TKeyPart<EVP_PKEY_CTX> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    // OpenSSL 1.0 would write the parameters of the curve in place of its name.
    if (context && EVP_PKEY_keygen_init(context.get()) == 1 &&
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(),
                                               NID_X9_62_prime256v1) == 1 &&
        EVP_PKEY_CTX_set_ec_param_enc(context.get(), OPENSSL_EC_NAMED_CURVE) ==
            1)
        EVP_PKEY_keygen(context.get(), &key);
    return TKeyPart<EVP_PKEY>(key);
}

// The bytes that were written to a file in memory.
std::string BytesOf(BIO* file)
{
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(file, &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

bool WritePem(EVP_PKEY* key, CKeyPair& keys)
{
    const TKeyPart<BIO> secret(BIO_new(BIO_s_mem()));
    const TKeyPart<BIO> open(BIO_new(BIO_s_mem()));
    if (!secret || !open ||
        PEM_write_bio_PKCS8PrivateKey(secret.get(), key, nullptr, nullptr, 0,
                                      nullptr, nullptr) != 1 ||
        PEM_write_bio_PUBKEY(open.get(), key) != 1)
        return false;
    keys = {BytesOf(secret.get()), BytesOf(open.get())};
    return true;
}

bool DigestOf(const std::string& path, TDigest& digest, std::string& error)
{
    COpenedFile file;
    if (!file.Open(path))
        return FailBySystem(error, "cannot be opened");
    if (!file.IsRegular())
        return Fail(error, "not a regular file");
    CFileSeal seal;
    if (!seal.Make(file, error))
        return false;
    digest = seal.Digest();
    return true;
}

bool Sign(EVP_PKEY* key,
          const TDigest& digest,
          std::string& signature,
          std::string& error)
{
    const TKeyPart<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    auto size = static_cast<std::size_t>(EVP_PKEY_size(key));
    signature.resize(size);
    if (!context || EVP_PKEY_sign_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1 ||
        EVP_PKEY_sign(context.get(),
                      reinterpret_cast<unsigned char*>(signature.data()), &size,
                      digest.data(), digest.size()) != 1)
        return Fail(error, "OpenSSL makes no signature");
    signature.resize(size);
    return true;
}

} // namespace

bool MakeKeyPair(CKeyPair& keys, std::string& error)
{
    const CErrorsDropped errorsDropped;
    const TKeyPart<EVP_PKEY> key = Generate();
    return (key && WritePem(key.get(), keys)) ||
           Fail(error, "OpenSSL makes no key");
}

bool SignFile(const std::string& file,
              std::string_view privateKey,
              std::string& signature,
              std::string& error)
{
    const CErrorsDropped errorsDropped;
    const TKeyPart<EVP_PKEY> key = Parse(privateKey, error);
    if (!key || !IsPackageKey(key.get(), error))
        return Fail(error, "the key cannot be used: " + error);
    TDigest digest = {};
    return DigestOf(file, digest, error) &&
           Sign(key.get(), digest, signature, error);
}

} // namespace KzaCore
