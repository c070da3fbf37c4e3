// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PackageKeys.h"

#include "support/SigningKey.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

using KzaCore::CPackageKeys;
using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

using Texts = std::vector<std::string>;
using EResult = CPackageKeys::EResult;

// Made once: to make an RSA key takes a while.
const CSigningKey& EcdsaKey()
{
    static const CSigningKey key = CSigningKey::Ecdsa();
    return key;
}

const CSigningKey& RsaKey()
{
    static const CSigningKey key = CSigningKey::Rsa();
    return key;
}

class PackageKeys : public ::testing::Test
{
protected:
    PackageKeys()
    {
        fs::create_directory(m_directory);
        chmod(m_directory.c_str(), 0755);
        WriteFile(m_package, kContent);
    }

    [[nodiscard]] std::string KeyFile(const std::string& name) const
    {
        return m_directory + "/" + name;
    }

    void AddKey(const std::string& name, const std::string& pem) const
    {
        WriteFile(KeyFile(name), pem);
        chmod(KeyFile(name).c_str(), 0644);
    }

    EResult Read() { return Read(m_directory); }
    EResult Read(const std::string& directory)
    {
        m_keys = CPackageKeys();
        m_passedOver.clear();
        return m_keys.Read(directory, m_passedOver);
    }

    // Who signed the package, or why that cannot be said.
    std::string Signer(const std::string& signature)
    {
        WriteFile(m_package + ".sig", signature);
        return Signer();
    }
    std::string Signer()
    {
        std::string signer;
        std::string error;
        return KzaCore::FindSigner(m_package, m_keys, signer, error)
                   ? signer
                   : "(" + error + ")";
    }

    static constexpr char kContent[] = "not looked into";
    static constexpr char kNone[] = "(its signature fits none of the keys)";

    CTempDir m_dir;
    std::string m_directory = m_dir.File("keys");
    std::string m_package = m_dir.File("p.kzp");
    CPackageKeys m_keys;
    Texts m_passedOver;
};

TEST_F(PackageKeys, ASignatureNamesItsKey)
{
    AddKey("curve.pem", EcdsaKey().PublicPem());
    AddKey("rsa.pem", RsaKey().PublicPem());
    ASSERT_EQ(Read(), EResult::Good);
    EXPECT_EQ(m_keys.Problem(), "");
    EXPECT_EQ(m_passedOver, Texts{});
    EXPECT_EQ(Signer(EcdsaKey().Sign(kContent)), "curve");
    EXPECT_EQ(Signer(RsaKey().Sign(kContent)), "rsa");
}

TEST_F(PackageKeys, OtherSignaturesFitNone)
{
    AddKey("curve.pem", EcdsaKey().PublicPem());
    AddKey("rsa.pem", RsaKey().PublicPem());
    ASSERT_EQ(Read(), EResult::Good);
    EXPECT_EQ(Signer(CSigningKey::Ecdsa().Sign(kContent)), kNone);
    EXPECT_EQ(Signer(CSigningKey::Rsa().Sign(kContent)), kNone);
    EXPECT_EQ(Signer(EcdsaKey().Sign("another package")), kNone);
    EXPECT_EQ(Signer(RsaKey().Sign("another package")), kNone);
    EXPECT_EQ(Signer("no signature at all"), kNone);
    EXPECT_EQ(Signer(""), kNone);
}

TEST_F(PackageKeys, ASignatureIsExactlyItsBytes)
{
    AddKey("curve.pem", EcdsaKey().PublicPem());
    AddKey("rsa.pem", RsaKey().PublicPem());
    ASSERT_EQ(Read(), EResult::Good);
    for (const CSigningKey* const key : {&EcdsaKey(), &RsaKey()})
    {
        const std::string good = key->Sign(kContent);
        ASSERT_NE(Signer(good), kNone);
        EXPECT_EQ(Signer(good + "\n"), kNone);
        EXPECT_EQ(Signer(good + std::string(1, '\0')), kNone);
        EXPECT_EQ(Signer(std::string(1, '\0') + good), kNone);
        EXPECT_EQ(Signer(good + good), kNone);
        EXPECT_EQ(Signer(good.substr(0, good.size() - 1)), kNone);
        EXPECT_EQ(Signer(good.substr(1)), kNone);
    }

    // The same two numbers behind a length in its longer form.
    const std::string der = EcdsaKey().Sign(kContent);
    EXPECT_EQ(Signer(der.substr(0, 1) + "\x81" + der.substr(1)), kNone);
}

TEST_F(PackageKeys, TheLastOfTenKeysMayFit)
{
    for (int i = 0; i < 9; ++i)
        AddKey(std::to_string(i) + ".pem", CSigningKey::Ecdsa().PublicPem());
    AddKey("9.pem", EcdsaKey().PublicPem());
    ASSERT_EQ(Read(), EResult::Good);
    EXPECT_EQ(Signer(EcdsaKey().Sign(kContent)), "9");
}

TEST_F(PackageKeys, KeysThatAreNoneArePassedOver)
{
    const auto passedOver =
        [&](const std::string& name, const std::string& reason)
    { return "Key '" + KeyFile(name) + "' is passed over: " + reason; };

    const std::string pem = EcdsaKey().PublicPem();
    std::string encrypted = pem;
    encrypted.insert(encrypted.find('\n') + 1,
                     "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,"
                     "0123456789ABCDEF0123456789ABCDEF\n\n");
    AddKey("a-text.pem", "no key");
    AddKey("b-empty.pem", "");
    AddKey("c-private.pem", EcdsaKey().PrivatePem());
    AddKey("d-private-first.pem", EcdsaKey().PrivatePem() + pem);
    AddKey("e-encrypted.pem", encrypted);
    AddKey("f-torn.pem", pem.substr(0, pem.size() / 2));
    AddKey("g-curve.pem", CSigningKey::Ecdsa("secp384r1").PublicPem());
    AddKey("h-short.pem", CSigningKey::Rsa(2048).PublicPem());
    AddKey("i-large.pem", pem + std::string(65536, '\n'));
    fs::create_directory(KeyFile("j-directory.pem"));
    fs::create_symlink("nowhere", KeyFile("k-dangling.pem"));
    ASSERT_EQ(mkfifo(KeyFile("l-pipe.pem").c_str(), 0600), 0);
    AddKey("m-good.pem", "A comment.\n" + pem);
    AddKey(".hidden.pem", "not looked at");
    AddKey("other.PEM", "not looked at");
    AddKey(".pem", "not looked at");

    EXPECT_EQ(Read(), EResult::Good);
    EXPECT_EQ(m_passedOver,
              (Texts{passedOver("a-text.pem", "it is no public key"),
                     passedOver("b-empty.pem", "it is no public key"),
                     passedOver("c-private.pem", "it is no public key"),
                     passedOver("d-private-first.pem", "it is no public key"),
                     passedOver("e-encrypted.pem", "it is no public key"),
                     passedOver("f-torn.pem", "it is no public key"),
                     passedOver("g-curve.pem", "its curve is not P-256"),
                     passedOver("h-short.pem", "it has fewer than 3072 bits"),
                     passedOver("i-large.pem", "it is larger than 65536 bytes"),
                     passedOver("j-directory.pem", "it is no regular file"),
                     passedOver("k-dangling.pem",
                                "it cannot be opened: No such file or "
                                "directory"),
                     passedOver("l-pipe.pem", "it is no regular file")}));
    EXPECT_EQ(Signer(EcdsaKey().Sign(kContent)), "m-good");
}

TEST_F(PackageKeys, WithoutAUsableKeyNothingIsAccepted)
{
    const std::string signature = EcdsaKey().Sign(kContent);
    const auto expectNone =
        [&](const std::string& directory, const std::string& problem)
    {
        EXPECT_EQ(Read(directory), EResult::None) << directory;
        EXPECT_EQ(m_keys.Problem(), problem);
        EXPECT_EQ(Signer(signature),
                  "(its signature cannot be checked: " + problem + ")");
    };
    expectNone("", "'' is no absolute path");
    expectNone("keys", "'keys' is no absolute path");
    expectNone(m_dir.File("missing"), "'" + m_dir.File("missing") +
                                          "' cannot be opened: No such file or "
                                          "directory");
    expectNone(m_package,
               "'" + m_package + "' cannot be opened: Not a directory");
    expectNone(m_directory, "no usable key is in '" + m_directory + "'");
    AddKey("a.pem", "no key");
    expectNone(m_directory, "no usable key is in '" + m_directory + "'");
    EXPECT_EQ(m_passedOver.size(), 1U);

    m_keys = CPackageKeys();
    EXPECT_EQ(Signer(signature), "(its signature cannot be checked: no keys "
                                 "have been read)");
}

TEST_F(PackageKeys, WhatOthersCanWriteSpoilsAllKeys)
{
    const std::string signature = EcdsaKey().Sign(kContent);
    const auto expectUnsafe =
        [&](const std::string& path, const std::string& mode)
    {
        EXPECT_EQ(Read(), EResult::Unsafe);
        const std::string problem =
            "'" + path + "' can be changed by others (owner " +
            std::to_string(geteuid()) + ", mode " + mode + ")";
        EXPECT_EQ(m_keys.Problem(), problem);
        EXPECT_EQ(Signer(signature),
                  "(its signature cannot be checked: " + problem + ")");
    };
    AddKey("a.pem", EcdsaKey().PublicPem());
    for (const auto& [mode, text] :
         {std::pair<mode_t, const char*>{0775, "0775"},
          {0757, "0757"},
          {01777, "1777"}})
    {
        chmod(m_directory.c_str(), mode);
        expectUnsafe(m_directory, text);
    }
    chmod(m_directory.c_str(), 0755);
    AddKey("b.pem", "no key yet");
    chmod(KeyFile("b.pem").c_str(), 0664);
    expectUnsafe(KeyFile("b.pem"), "0664");
    chmod(KeyFile("b.pem").c_str(), 0646);
    expectUnsafe(KeyFile("b.pem"), "0646");
    chmod(KeyFile("b.pem").c_str(), 0644);
    EXPECT_EQ(Read(), EResult::Good);
    EXPECT_EQ(Signer(signature), "a");
}

TEST_F(PackageKeys, LinksAreJudgedByWhatTheyLeadTo)
{
    const std::string signature = EcdsaKey().Sign(kContent);
    const std::string other = m_dir.File("other");
    WriteFile(other + "/key", EcdsaKey().PublicPem());
    chmod(other.c_str(), 0755);
    chmod((other + "/key").c_str(), 0644);
    fs::create_symlink("../other/key", KeyFile("a.pem"));
    fs::create_directory_symlink("keys", m_dir.File("link"));
    EXPECT_EQ(Read(m_dir.File("link")), EResult::Good);
    EXPECT_EQ(Signer(signature), "a");

    chmod(other.c_str(), 0777);
    EXPECT_EQ(Read(), EResult::Unsafe);
    EXPECT_EQ(m_keys.Problem(), "'" + other +
                                    "' can be changed by others (owner " +
                                    std::to_string(geteuid()) + ", mode 0777)");
    chmod(other.c_str(), 0755);
    chmod((other + "/key").c_str(), 0666);
    EXPECT_EQ(Read(), EResult::Unsafe);
    EXPECT_EQ(m_keys.Problem(), "'" + other +
                                    "/key' can be changed by others (owner " +
                                    std::to_string(geteuid()) + ", mode 0666)");
}

TEST_F(PackageKeys, ASignatureIsASmallRegularFile)
{
    AddKey("a.pem", EcdsaKey().PublicPem());
    ASSERT_EQ(Read(), EResult::Good);
    const std::string file = m_package + ".sig";
    EXPECT_EQ(Signer(), "(it has no signature)");
    EXPECT_EQ(Signer(std::string(4096, 'x')), kNone);
    EXPECT_EQ(Signer(std::string(4097, 'x')),
              "(its signature is larger than 4096 bytes)");
    fs::resize_file(file, std::uintmax_t(1) << 36);
    EXPECT_EQ(Signer(), "(its signature is larger than 4096 bytes)");
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(Signer(), "(its signature is no regular file)");
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(Signer(), "(its signature is no regular file)");
    fs::remove(m_package);
    EXPECT_EQ(Signer(), "(cannot be opened: No such file or directory)");
}

} // namespace
