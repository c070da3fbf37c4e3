// SPDX-License-Identifier: Apache-2.0
//
// Packages signed with the openssl command, as operators do it.

#include "e2e/packages/Packages.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

constexpr char kEcdsa[] = "-algorithm EC -pkeyopt ec_paramgen_curve:P-256";
constexpr char kRsa[] = "-algorithm RSA -pkeyopt rsa_keygen_bits:3072";

void Shell(const std::string& command)
{
    const CProcessResult result = Run({"/bin/sh", "-c", command});
    ASSERT_EQ(result.status, 0) << command << "\n" << result.err;
}

// A host with a directory of public keys. The private keys are in another
// directory, as they would be on the operator's own machine.
class CSigningHost
{
public:
    CSigningHost() { chmod(m_keys.Path().c_str(), 0755); }

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_host.File(name);
    }
    [[nodiscard]] const std::string& Keys() const { return m_keys.Path(); }
    [[nodiscard]] CPackageHost& Host() { return m_host; }

    // Makes a pair of keys; the host trusts it.
    void AddKey(const std::string& name, const std::string& kind) const
    {
        MakeKey(name, kind);
        Shell("openssl pkey -in " + m_desk.File(name) + ".key -pubout -out " +
              m_keys.File(name) + ".pem && chmod 644 " + m_keys.File(name) +
              ".pem");
    }

    void MakeKey(const std::string& name, const std::string& kind) const
    {
        Shell("openssl genpkey " + kind + " -out " + m_desk.File(name) +
              ".key 2>/dev/null");
    }

    void Sign(const std::string& package, const std::string& key) const
    {
        Shell("openssl dgst -sha256 -sign " + m_desk.File(key) + ".key -out " +
              File(package) + ".sig " + File(package));
    }

    // A start with the signatures asked for.
    void Run()
    {
        m_host.SetOptions({"--domain_var", "packages.keys=" + Keys()});
        m_host.Run();
    }

private:
    CPackageHost m_host;
    CTempDir m_keys;
    CTempDir m_desk;
};

TEST(Signature, PackagesSignedWithTheCommandAreApplied)
{
    CSigningHost host;
    host.AddKey("curve", kEcdsa);
    host.AddKey("rsa", kRsa);
    host.Host().Add("a.kzp", {{"a", "by curve"}, {"gone", "x"}});
    host.Host().Add("b.kzp", {{"b", "by RSA"}});
    host.Host().Add("c.kzu", {{"old", ""}});
    host.Host().Add("old", "removed");
    host.Sign("a.kzp", "curve");
    host.Sign("b.kzp", "rsa");
    host.Sign("c.kzu", "rsa");
    host.Run();
    EXPECT_EQ(host.Host().Events(),
              (Lines{Event(kRemoved, "c.kzu"), Event(kInstalled, "a.kzp"),
                     Event(kInstalled, "b.kzp")}));
    EXPECT_EQ(host.Host().Problems(), Lines{});
    EXPECT_EQ(host.Host().Tree(),
              (Lines{"a", "a.kzp.done", "a.kzp.done.sig", "b", "b.kzp.done",
                     "b.kzp.done.sig", "gone"}));

    // What was installed can be checked with the command as well.
    Shell("openssl dgst -sha256 -verify " + host.Keys() +
          "/curve.pem -signature " + host.File("a.kzp.done.sig") + " " +
          host.File("a.kzp.done"));
}

TEST(Signature, OtherPackagesAreRefusedAndStay)
{
    CSigningHost host;
    host.AddKey("curve", kEcdsa);
    host.MakeKey("stranger", kEcdsa);
    for (const char* name : {"another.kzp", "changed.kzp", "strange.kzp",
                             "unsigned.kzp", "unsigned.kzu"})
        host.Host().Add(name, {{"evil", name}});
    host.Sign("unsigned.kzp", "curve");
    fs::rename(host.File("unsigned.kzp.sig"), host.File("another.kzp.sig"));
    host.Sign("strange.kzp", "stranger");
    host.Sign("changed.kzp", "curve");
    host.Host().Add("changed.kzp", {{"evil", "changed later"}});
    const Lines before = host.Host().Tree();
    host.Run();
    EXPECT_EQ(host.Host().Events(),
              (Lines{Event(kNotRemoved, "unsigned.kzu"),
                     Event(kNotInstalled, "another.kzp"),
                     Event(kNotInstalled, "changed.kzp"),
                     Event(kNotInstalled, "strange.kzp"),
                     Event(kNotInstalled, "unsigned.kzp")}));
    const std::string none = "it has no signature";
    const std::string wrong = "its signature fits none of the keys";
    EXPECT_EQ(
        host.Host().Problems(),
        (Lines{Refusal("unsigned.kzu", none), Refusal("another.kzp", wrong),
               Refusal("changed.kzp", wrong), Refusal("strange.kzp", wrong),
               Refusal("unsigned.kzp", none)}));
    EXPECT_EQ(host.Host().Tree(), before);
}

TEST(Signature, AWeakKeyIsPassedOver)
{
    CSigningHost host;
    host.AddKey("weak", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048");
    host.Host().Add("a.kzp", {{"a", "x"}});
    host.Sign("a.kzp", "weak");
    host.Run();
    EXPECT_EQ(host.Host().Problems(),
              (Lines{"WARNING Key '" + host.Keys() +
                         "/weak.pem' is passed over: it has fewer than 3072 "
                         "bits",
                     Refusal("a.kzp", "its signature cannot be checked: no "
                                      "usable key is in '" +
                                          host.Keys() + "'")}));
}

TEST(Signature, KeysThatOthersCanWriteAreAnError)
{
    CSigningHost host;
    host.AddKey("curve", kEcdsa);
    host.Host().Add("a.kzp", {{"a", "x"}});
    host.Sign("a.kzp", "curve");
    chmod(host.Keys().c_str(), 0777);
    host.Run();
    EXPECT_EQ(host.Host().Events(), Lines{Event(kNotInstalled, "a.kzp")});
    const Lines problems = host.Host().Problems();
    ASSERT_EQ(problems.size(), 2U);
    EXPECT_EQ(problems[0].find("ERROR '" + host.Keys() +
                               "' can be changed by others (owner "),
              0U)
        << problems[0];
    EXPECT_NE(problems[1].find("its signature cannot be checked"),
              std::string::npos)
        << problems[1];
}

// The setting as an operator makes it.
TEST(Signature, TheConfigurationFileMayAskForOne)
{
    CSigningHost host;
    host.AddKey("curve", kEcdsa);
    host.Host().Add("work/kz_agent.ini",
                    "[domain]\npackages.keys=" + host.Keys() + "\n");
    host.Host().Add("a.kzp", {{"a", "x"}});
    host.Host().Add("b.kzp", {{"b", "x"}});
    host.Sign("b.kzp", "curve");
    host.Host().Run();
    EXPECT_EQ(host.Host().Events(), (Lines{Event(kNotInstalled, "a.kzp"),
                                           Event(kInstalled, "b.kzp")}));
}

TEST(Signature, HoldsInFipsMode)
{
    CSigningHost host;
    host.AddKey("curve", kEcdsa);
    host.AddKey("rsa", kRsa);
    fs::create_directory(host.File("ossl-modules"));
    fs::copy(KZA_BINARY_DIR "/tests/fips/delegate/fips.so",
             host.File("ossl-modules/fips.so"));
    host.Host().Add("a.kzp", {{"a", "x"}});
    host.Host().Add("b.kzp", {{"b", "x"}});
    host.Host().Add("c.kzp", {{"c", "x"}});
    host.Sign("a.kzp", "curve");
    host.Sign("b.kzp", "rsa");
    host.Host().Add("work/kz_agent.ini", std::string("FIPSMode=1\n"));
    host.Run();
    EXPECT_EQ(host.Host().Events(),
              (Lines{Event(kInstalled, "a.kzp"), Event(kInstalled, "b.kzp"),
                     Event(kNotInstalled, "c.kzp")}));
    const std::string log = ReadFile(host.File("work/log/report.log"));
    EXPECT_NE(log.find("FIPS mode is ON"), std::string::npos) << log;
    EXPECT_EQ(host.Host().Problems(),
              Lines{Refusal("c.kzp", "it has no signature")});
}

} // namespace
