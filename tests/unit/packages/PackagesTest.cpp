// SPDX-License-Identifier: Apache-2.0
//
// Packages that change while they are applied, and those that are signed.

#include "packages/Packages.h"

#include "events/EventStore.h"
#include "kza_core/Dom.h"
#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/SigningKey.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace TestSupport;
namespace DomKey = KzaCore::DomKey;

namespace
{

using Numbers = std::vector<long long>;
using Texts = std::vector<std::string>;

// A host whose packages are changed by the callback.
class Packages : public ::testing::Test
{
protected:
    Packages()
    {
        m_dom->Set(DomKey::kPathBin, m_bin.Path());
        m_dom->Set(DomKey::kPathWork, m_work.Path());
    }
    ~Packages() override { KzaCore::CloseEventStore(); }

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_bin.File(name);
    }

    void Add(const std::string& name, const std::string& content) const
    {
        WriteFile(File(name), MakeZip({{name + ".entry", content}}));
    }

    // One start with the packages applied.
    void Apply()
    {
        CPackages packages(*m_dom);
        packages.Remove(ActCB, this);
        packages.Install(ActCB, this);
    }

    Numbers Events()
    {
        std::vector<KzaCore::CStoredEvent> events;
        std::string error;
        EXPECT_TRUE(KzaCore::ReadEvents(*m_dom, 0, -1, events, error)) << error;
        Numbers numbers;
        for (const KzaCore::CStoredEvent& event : events)
            numbers.push_back(event.number);
        return numbers;
    }

    void ExpectReplaced(const std::string& name)
    {
        ASSERT_EQ(m_log.m_texts.size(), 1U);
        EXPECT_EQ(m_log.m_levels[0], wxLOG_Warning);
        EXPECT_EQ(m_log.m_texts[0], "Plugin file '" + File(name) +
                                        "' was replaced while it was applied. "
                                        "It stays for the next start.");
    }

    // The texts of a level in the log.
    [[nodiscard]] Texts Logged(wxLogLevel level) const
    {
        Texts texts;
        for (std::size_t i = 0; i < m_log.m_texts.size(); ++i)
            if (m_log.m_levels[i] == level)
                texts.push_back(std::string(m_log.m_texts[i].utf8_str()));
        return texts;
    }

    std::function<void()> m_act = [] {}; // done at each entry

    CTempDir m_bin;
    CTempDir m_work;
    DomPtr m_dom = NewDom();
    CCollectedLog m_log;

private:
    static bool ActCB(void* context,
                      const wxZipEntry* /*entry*/,
                      const wxString* /*path*/)
    {
        static_cast<Packages*>(context)->m_act();
        return true;
    }
};

TEST_F(Packages, OneThatIsReplacedStaysForTheNextStart)
{
    Add("p.kzp", "old");
    m_act = [&]
    {
        Add("other", "new");
        std::rename(File("other").c_str(), File("p.kzp").c_str());
    };
    Apply();
    ExpectReplaced("p.kzp");
    EXPECT_EQ(Events(), Numbers{5101});
    EXPECT_EQ(ReadFile(File("p.kzp.entry")), "old");
    EXPECT_FALSE(FileExists(File("p.kzp.done")));

    m_act = [] {};
    Apply();
    EXPECT_EQ(Events(), (Numbers{5101, 5101}));
    EXPECT_FALSE(FileExists(File("p.kzp")));
    EXPECT_EQ(ReadFile(File("p.kzp.done")), MakeZip({{"other.entry", "new"}}));
    EXPECT_EQ(m_log.m_texts.size(), 1U);
}

TEST_F(Packages, OneThatIsWrittenAnewStaysToo)
{
    Add("p.kzp", "old");
    m_act = [&] { WriteFile(File("p.kzp"), ReadFile(File("p.kzp")) + "more"); };
    Apply();
    ExpectReplaced("p.kzp");
    EXPECT_EQ(Events(), Numbers{5101});
    EXPECT_FALSE(FileExists(File("p.kzp.done")));
}

TEST_F(Packages, ARemovalThatIsReplacedStaysForTheNextStart)
{
    Add("p.kzu", "");
    m_act = [&]
    {
        Add("other", "");
        std::rename(File("other").c_str(), File("p.kzu").c_str());
    };
    Apply();
    ExpectReplaced("p.kzu");
    EXPECT_EQ(Events(), Numbers{5105});
    EXPECT_TRUE(FileExists(File("p.kzu")));

    m_act = [] {};
    Apply();
    EXPECT_EQ(Events(), (Numbers{5105, 5105}));
    EXPECT_FALSE(FileExists(File("p.kzu")));
}

TEST_F(Packages, OneThatVanishesCannotBeDeleted)
{
    Add("p.kzu", "");
    m_act = [&] { std::remove(File("p.kzu").c_str()); };
    Apply();
    ASSERT_EQ(m_log.m_texts.size(), 1U);
    EXPECT_EQ(m_log.m_levels[0], wxLOG_Error);
    EXPECT_EQ(m_log.m_texts[0], "Unable to delete " + File("p.kzu") +
                                    " (error 2: No such file or directory)");
    EXPECT_EQ(Events(), Numbers{5105});
}

class SignedPackages : public Packages
{
protected:
    SignedPackages()
    {
        AddKey("operator.pem", Key().PublicPem());
        chmod(m_keys.Path().c_str(), 0755);
        m_dom->Set(DomKey::kPackageKeys, m_keys.Path());
    }

    static const CSigningKey& Key()
    {
        static const CSigningKey key = CSigningKey::Ecdsa();
        return key;
    }

    void AddKey(const std::string& name, const std::string& pem) const
    {
        WriteFile(m_keys.File(name), pem);
        chmod(m_keys.File(name).c_str(), 0644);
    }

    void Sign(const std::string& name) const
    {
        WriteFile(File(name + ".sig"), Key().Sign(ReadFile(File(name))));
    }

    [[nodiscard]] std::string Refusal(const std::string& name,
                                      const std::string& reason) const
    {
        return "Unable to unpack '" + File(name) + "': " + reason;
    }

    CTempDir m_keys;
};

TEST_F(SignedPackages, TheSignatureGoesWithItsPackage)
{
    Add("p.kzp", "x");
    Sign("p.kzp");
    Add("p.kzu", "x");
    Sign("p.kzu");
    const std::string signature = ReadFile(File("p.kzp.sig"));
    Apply();
    EXPECT_EQ(Events(), (Numbers{5105, 5101}));
    EXPECT_TRUE(m_log.m_texts.empty());
    EXPECT_FALSE(FileExists(File("p.kzu")));
    EXPECT_FALSE(FileExists(File("p.kzu.sig")));
    EXPECT_FALSE(FileExists(File("p.kzp.sig")));
    EXPECT_EQ(ReadFile(File("p.kzp.done.sig")), signature);
}

TEST_F(SignedPackages, WithoutOneTheyAreRefused)
{
    Add("p.kzp", "x");
    Add("p.kzu", "x");
    Apply();
    EXPECT_EQ(Events(), (Numbers{5106, 5102}));
    EXPECT_EQ(Logged(wxLOG_Warning),
              (Texts{Refusal("p.kzu", "it has no signature"),
                     Refusal("p.kzp", "it has no signature")}));
    EXPECT_TRUE(FileExists(File("p.kzp")));
    EXPECT_TRUE(FileExists(File("p.kzu")));
    EXPECT_FALSE(FileExists(File("p.kzp.entry")));
}

TEST_F(SignedPackages, TheLookAtTheNameComesFirst)
{
    Add("Plugin-Old-x-11.0.0-1.x.kzp", "x");
    Apply();
    EXPECT_EQ(Logged(wxLOG_Warning),
              Texts{"Plugin file '" + File("Plugin-Old-x-11.0.0-1.x.kzp") +
                    "' does not match KZA core version, not installing"});
}

TEST_F(SignedPackages, ASignatureToComeStaysForItsPackage)
{
    Add("p.kzp", "x");
    Sign("p.kzp");
    Add("p.kzu", "x");
    Sign("p.kzu");
    m_act = [&]
    {
        WriteFile(File("new"), "of the next package");
        std::rename(File("new").c_str(), File("p.kzp.sig").c_str());
        WriteFile(File("new"), "of the next package");
        std::rename(File("new").c_str(), File("p.kzu.sig").c_str());
        m_act = [] {};
    };
    Apply();
    EXPECT_EQ(ReadFile(File("p.kzu.sig")), "of the next package");
    EXPECT_EQ(ReadFile(File("p.kzp.sig")), "of the next package");
}

TEST_F(SignedPackages, WithoutKeysTheSignatureGoesWithItsPackageToo)
{
    m_dom->Remove(DomKey::kPackageKeys);
    Add("p.kzp", "x");
    WriteFile(File("p.kzp.sig"), "by anybody");
    Add("q.kzp", "x");
    WriteFile(File("q.kzp.done.sig"), "of the one before");
    Apply();
    EXPECT_EQ(Events(), (Numbers{5101, 5101}));
    EXPECT_EQ(ReadFile(File("p.kzp.done.sig")), "by anybody");
    EXPECT_FALSE(FileExists(File("p.kzp.sig")));
    EXPECT_FALSE(FileExists(File("q.kzp.done.sig")));
}

TEST_F(SignedPackages, AnUnsafeKeyIsOneErrorAndAppliesNothing)
{
    AddKey("open.pem", "");
    chmod(m_keys.File("open.pem").c_str(), 0666);
    for (const char* name : {"p.kzp", "q.kzp", "p.kzu"})
    {
        Add(name, "x");
        Sign(name);
    }
    Apply();
    EXPECT_EQ(Events(), (Numbers{5106, 5102, 5102}));
    const std::string unsafe = "'" + m_keys.File("open.pem") +
                               "' can be changed by others (owner " +
                               std::to_string(geteuid()) + ", mode 0666)";
    EXPECT_EQ(Logged(wxLOG_Error), Texts{unsafe});
    const std::string reason = "its signature cannot be checked: " + unsafe;
    EXPECT_EQ(Logged(wxLOG_Warning),
              (Texts{Refusal("p.kzu", reason), Refusal("p.kzp", reason),
                     Refusal("q.kzp", reason)}));
}

TEST_F(SignedPackages, AUselessKeyIsOneWarningAndOthersCount)
{
    AddKey("junk.pem", "junk");
    for (const char* name : {"p.kzp", "p.kzu"})
    {
        Add(name, "x");
        Sign(name);
    }
    Apply();
    EXPECT_EQ(Events(), (Numbers{5105, 5101}));
    EXPECT_EQ(Logged(wxLOG_Warning),
              Texts{"Key '" + m_keys.File("junk.pem") +
                    "' is passed over: it is no public key"});
    EXPECT_EQ(m_log.m_texts.size(), 1U);
}

TEST_F(SignedPackages, AKeyDirectoryThatIsNoneAppliesNothing)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "'' is no absolute path"},
        {"keys", "'keys' is no absolute path"},
        {m_keys.File("no"), "'" + m_keys.File("no") +
                                "' cannot be opened: No such file or "
                                "directory"},
    };
    Add("p.kzp", "x");
    Sign("p.kzp");
    for (const auto& [directory, problem] : cases)
    {
        SCOPED_TRACE(directory);
        m_dom->Set(DomKey::kPackageKeys, directory);
        m_log.m_texts.clear();
        m_log.m_levels.clear();
        Apply();
        EXPECT_EQ(Logged(wxLOG_Warning),
                  Texts{Refusal("p.kzp", "its signature cannot be checked: " +
                                             problem)});
        EXPECT_EQ(Logged(wxLOG_Error), Texts{});
        EXPECT_FALSE(FileExists(File("p.kzp.entry")));
    }
    m_dom->Set(DomKey::kPackageKeys, true); // no text at all
    Apply();
    EXPECT_FALSE(FileExists(File("p.kzp.entry")));
    EXPECT_EQ(Events(), (Numbers{5102, 5102, 5102, 5102}));
}

} // namespace
