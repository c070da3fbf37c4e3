// SPDX-License-Identifier: Apache-2.0
//
// Packages on a host that is full, small, or killed.

#include "e2e/packages/Packages.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <csignal>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

// A file of more than 10 GB of zeros in about 10 MB.
CZipInput Bomb()
{
    // A flushed stream ends on a byte, so that it can be strung together.
    const std::string zeros(1 << 24, '\0');
    std::string block(1 << 20, '\0');
    z_stream stream = {};
    deflateInit2(&stream, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
    stream.avail_in = static_cast<uInt>(zeros.size());
    stream.next_out = reinterpret_cast<Bytef*>(block.data());
    stream.avail_out = static_cast<uInt>(block.size());
    deflate(&stream, Z_FULL_FLUSH);
    block.resize(block.size() - stream.avail_out);
    deflateEnd(&stream);

    constexpr std::uint64_t kBlocks = 640;
    std::string packed;
    for (std::uint64_t i = 0; i < kBlocks; ++i)
        packed += block;
    CZipInput bomb{"small/bomb", ""};
    bomb.packed = packed + std::string("\x03\x00", 2); // an empty last block
    bomb.size = kBlocks * zeros.size();
    bomb.zip64 = true;
    return bomb;
}

// A host with a directory that is a small file system of its own while the
// agent runs.
class CSmallDiskHost : public CPackageHost
{
public:
    CSmallDiskHost() { fs::create_directory(File("small")); }

    void RunSmall(const std::string& size)
    {
        CProcessOptions options;
        options.inChild = [directory = File("small"), size]
        {
            EnterMountNamespace();
            MountTmpfs(directory, size);
        };
        Run(options, "ls -A '" + File("small") + "'");
    }
};

TEST(PackageFaults, ABombDoesNotFillTheDisk)
{
    CSmallDiskHost host;
    host.Add("bomb.kzp", {{"small/first", "absent"}, Bomb()});
    host.Add("next.kzp", {{"small/next", "x"}});
    host.RunSmall("8m");
    EXPECT_EQ(host.Events(), (Lines{Event(kNotInstalled, "bomb.kzp"),
                                    Event(kInstalled, "next.kzp")}));
    EXPECT_EQ(host.Problems(),
              Lines{Refusal("bomb.kzp", "its files need 10737418246 bytes "
                                        "where 8388608 are free")});
    EXPECT_EQ(host.Probe(), Lines{"next"});
}

// Each file would fit, all of them together do not.
TEST(PackageFaults, ManyFilesDoNotFillTheDiskEither)
{
    CSmallDiskHost host;
    std::vector<CZipInput> files;
    files.reserve(20);
    for (int i = 0; i < 20; ++i)
        files.emplace_back("small/" + std::to_string(10 + i),
                           std::string(900000, '\0'));
    host.Add("x.kzp", files);
    host.RunSmall("8m");
    EXPECT_EQ(host.Events(), Lines{Event(kNotInstalled, "x.kzp")});
    EXPECT_EQ(host.Problems(),
              Lines{Refusal("x.kzp", "its files need 18000000 bytes where "
                                     "8388608 are free")});
    EXPECT_EQ(host.Probe(), Lines{});

    // Removing the files needs no room.
    host.Add("x.kzu", files);
    fs::remove(host.File("x.kzp"));
    host.RunSmall("64k");
    EXPECT_EQ(host.Events(), Lines{Event(kRemoved, "x.kzu")});
}

TEST(PackageFaults, ABombThatHidesItsSizeIsDamaged)
{
    CSmallDiskHost host;
    CZipInput bomb = Bomb();
    bomb.size = 6 << 20;
    host.Add("bomb.kzp", {bomb});
    host.RunSmall("8m");
    EXPECT_EQ(host.Events(), Lines{Event(kNotInstalled, "bomb.kzp")});
    EXPECT_EQ(host.Log().back(),
              "WARNING Unable to unpack '@/bomb.kzp': entry 'small/bomb': its "
              "compressed data are damaged");
    EXPECT_EQ(host.Probe(), Lines{});
}

// A file takes at least a block of the disk, so files of one byte need more
// room than the sum of their sizes.
TEST(PackageFaults, AFullDiskLeavesNoHalfFile)
{
    constexpr int kFiles = 300;
    CSmallDiskHost host;
    std::vector<CZipInput> files;
    files.reserve(kFiles);
    for (int i = 0; i < kFiles; ++i)
        files.emplace_back("small/" + std::to_string(100 + i), "x");
    host.Add("x.kzp", files);
    host.RunSmall("512k");
    EXPECT_EQ(host.Events(), Lines{Event(kNotInstalled, "x.kzp")});
    ASSERT_EQ(host.Problems().size(), 1U);
    EXPECT_NE(host.Problems()[0].find(
                  "it cannot be written: No space left on device"),
              std::string::npos)
        << host.Problems()[0];
    EXPECT_LT(host.Probe().size(), 512U / 4 + 1);
    for (const std::string& name : host.Probe())
        EXPECT_EQ(name.size(), 3U) << name;
}

// The same numbers in every run, so that a failure can be repeated.
std::mt19937 Random(std::uint32_t seed)
{
    return std::mt19937(seed);
}

// A package that replaces files and a removal package that takes some away,
// with the two states that each file may be in.
class CUpgrade
{
public:
    CUpgrade()
    {
        std::mt19937 random = Random(1);
        for (int i = 0; i < kFiles; ++i)
        {
            const std::string name = "plugins/" + std::to_string(i % 7) +
                                     "/file" + std::to_string(i);
            m_old.emplace_back(name, Prose(random() % 20000, random()));
            m_new.emplace_back(name, Prose(random() % 20000, random()));
        }
        m_old.emplace_back("plugins/large", Prose(6000000, 1));
        m_new.emplace_back("plugins/large", Prose(7000000, 2));
        for (int i = 0; i < 20; ++i)
            m_removed.emplace_back("removed/" + std::to_string(i), Prose(500));
        m_package = MakeZip(m_new);
        m_removal = MakeZip(m_removed);
    }

    void Reset() const
    {
        for (const auto& file : m_old)
            WriteFile(m_host.File(file.name), file.content);
        for (const auto& file : m_removed)
            WriteFile(m_host.File(file.name), file.content);
        m_host.Add("x.kzp", m_package);
        m_host.Add("x.kzu", m_removal);
        fs::remove(m_host.File("x.kzp.done"));
    }

    // How many files are new; every one must be the old or the new one.
    [[nodiscard]] int CountNew() const
    {
        int count = 0;
        for (std::size_t i = 0; i < m_new.size(); ++i)
        {
            const std::string content = ReadFile(m_host.File(m_new[i].name));
            const bool isNew = content == m_new[i].content;
            EXPECT_TRUE(isNew || content == m_old[i].content)
                << m_new[i].name << ", " << content.size() << " bytes";
            count += isNew ? 1 : 0;
        }
        for (const auto& file : m_removed)
        {
            const bool isThere = FileExists(m_host.File(file.name));
            EXPECT_EQ(ReadFile(m_host.File(file.name)),
                      isThere ? file.content : "");
        }
        return count;
    }

    [[nodiscard]] bool IsNew(std::size_t index) const
    {
        std::error_code ignored;
        return fs::file_size(m_host.File(m_new[index].name), ignored) ==
               m_new[index].content.size();
    }

    // Temporary files that unpacking has left beside the executable.
    [[nodiscard]] int CountLeftovers() const
    {
        int count = 0;
        for (const std::string& name : m_host.Tree())
            count += name.find(".kza_unzip") != std::string::npos ? 1 : 0;
        return count;
    }

    void ExpectComplete() const
    {
        EXPECT_EQ(CountNew(), kFiles + 1);
        EXPECT_EQ(CountLeftovers(), 0);
        EXPECT_FALSE(FileExists(m_host.File("x.kzp")));
        EXPECT_FALSE(FileExists(m_host.File("x.kzu")));
        EXPECT_EQ(ReadFile(m_host.File("x.kzp.done")), m_package);
        for (const auto& file : m_removed)
            EXPECT_FALSE(FileExists(m_host.File(file.name))) << file.name;
    }

    static constexpr int kFiles = 120;

    CPackageHost m_host;

private:
    std::vector<CZipInput> m_old;
    std::vector<CZipInput> m_new;
    std::vector<CZipInput> m_removed;
    std::string m_package;
    std::string m_removal;
};

TEST(PackageFaults, AKillAtAnyPointLeavesWholeFilesAndIsMadeGood)
{
    using clock = std::chrono::steady_clock;
    CUpgrade upgrade;
    upgrade.Reset();
    const auto start = clock::now();
    upgrade.m_host.Run();
    const auto whole = clock::now() - start;
    upgrade.ExpectComplete();

    std::mt19937 random = Random(2);
    int inBetween = 0;
    for (int i = 0; i < 50; ++i)
    {
        SCOPED_TRACE(i);
        upgrade.Reset();
        {
            CProcess agent(upgrade.m_host.Words());
            const clock::duration delay = whole / 1000 * (random() % 1000);
            const std::size_t file = random() % CUpgrade::kFiles;
            if (i % 2 == 0)
                std::this_thread::sleep_for(delay);
            else
                WaitUntil([&] { return upgrade.IsNew(file); });
            agent.Signal(SIGKILL);
            agent.Wait();
        }
        const int count = upgrade.CountNew();
        inBetween += count > 0 && count < CUpgrade::kFiles ? 1 : 0;
        EXPECT_LE(upgrade.CountLeftovers(), 1);

        upgrade.m_host.Run();
        upgrade.ExpectComplete();
    }
    EXPECT_GE(inBetween, 10) << "kills that hit the installation";
}

} // namespace
