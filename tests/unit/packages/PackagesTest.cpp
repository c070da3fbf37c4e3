// SPDX-License-Identifier: Apache-2.0
//
// Packages that change while they are applied.

#include "packages/Packages.h"

#include "events/EventStore.h"
#include "kza_core/Dom.h"
#include "support/CollectedLog.h"
#include "support/DomPtr.h"
#include "support/TempDir.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace TestSupport;
namespace DomKey = KzaCore::DomKey;

namespace
{

using Numbers = std::vector<long long>;

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

    void Install() { CPackages(*m_dom).Install(ActCB, this); }
    void Remove() { CPackages(*m_dom).Remove(ActCB, this); }

    Numbers Events()
    {
        std::vector<KzaCore::SStoredEvent> events;
        std::string error;
        EXPECT_TRUE(KzaCore::ReadEvents(*m_dom, 0, -1, events, error)) << error;
        Numbers numbers;
        for (const KzaCore::SStoredEvent& event : events)
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
    Install();
    ExpectReplaced("p.kzp");
    EXPECT_EQ(Events(), Numbers{5101});
    EXPECT_EQ(ReadFile(File("p.kzp.entry")), "old");
    EXPECT_FALSE(FileExists(File("p.kzp.done")));

    m_act = [] {};
    Install();
    EXPECT_EQ(Events(), (Numbers{5101, 5101}));
    EXPECT_FALSE(FileExists(File("p.kzp")));
    EXPECT_EQ(ReadFile(File("p.kzp.done")), MakeZip({{"other.entry", "new"}}));
    EXPECT_EQ(m_log.m_texts.size(), 1U);
}

TEST_F(Packages, OneThatIsWrittenAnewStaysToo)
{
    Add("p.kzp", "old");
    m_act = [&] { WriteFile(File("p.kzp"), ReadFile(File("p.kzp")) + "more"); };
    Install();
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
    Remove();
    ExpectReplaced("p.kzu");
    EXPECT_EQ(Events(), Numbers{5105});
    EXPECT_TRUE(FileExists(File("p.kzu")));

    m_act = [] {};
    Remove();
    EXPECT_EQ(Events(), (Numbers{5105, 5105}));
    EXPECT_FALSE(FileExists(File("p.kzu")));
}

TEST_F(Packages, OneThatVanishesCannotBeDeleted)
{
    Add("p.kzu", "");
    m_act = [&] { std::remove(File("p.kzu").c_str()); };
    Remove();
    ASSERT_EQ(m_log.m_texts.size(), 1U);
    EXPECT_EQ(m_log.m_levels[0], wxLOG_Error);
    EXPECT_EQ(m_log.m_texts[0], "Unable to delete " + File("p.kzu") +
                                    " (error 2: No such file or directory)");
    EXPECT_EQ(Events(), Numbers{5105});
}

} // namespace
