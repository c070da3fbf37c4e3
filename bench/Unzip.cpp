// SPDX-License-Identifier: Apache-2.0
//
// How fast is a package unpacked, and with how much memory?
//
// Peers: bsdtar and unzip as separate processes, each into a fresh directory:
// on ext4 a tree that is made again soon after its deletion is several times
// slower. The agent checks the whole archive first, checks every CRC and
// renames every file into its place.

#include "Bench.h"

#include "support/TempDir.h"
#include "support/Zip.h"

#include "kza_core/Unzip.h"

#include <wx/filename.h>
#include <wx/init.h>
#include <wx/log.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>

namespace fs = std::filesystem;
using namespace TestSupport;

namespace
{

constexpr int kTurns = 3;
constexpr std::size_t kTotal = 200'000'000;
constexpr int kLargeFiles = 5;
constexpr int kSmallFiles = 20'000;

void Die(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

// What programs and texts are made of: the libraries of this machine.
std::string Content()
{
    std::string content;
    for (const auto& item : fs::directory_iterator("/usr/lib/x86_64-linux-gnu"))
    {
        if (content.size() >= kTotal)
            break;
        if (item.is_regular_file() && item.file_size() < 40'000'000)
            content += ReadFile(item.path());
    }
    while (content.size() < kTotal)
        content += content.empty() ? Prose(kTotal) : content;
    content.resize(kTotal);
    return content;
}

void MakeArchives(const CTempDir& dir)
{
    const std::string content = Content();
    std::vector<CZipInput> large;
    for (int i = 0; i < kLargeFiles; ++i)
        large.emplace_back(
            "file" + std::to_string(i),
            content.substr(kTotal / kLargeFiles * static_cast<std::size_t>(i),
                           kTotal / kLargeFiles));
    WriteFile(dir.File("large"), MakeZip(large));

    std::mt19937 random(1);
    std::vector<CZipInput> small;
    std::size_t at = 0;
    for (int i = 0; i < kSmallFiles; ++i)
    {
        const std::size_t size = 2000 + random() % 16000;
        small.emplace_back("directory" + std::to_string(i / 100) + "/file" +
                               std::to_string(i),
                           content.substr(at % (kTotal - 20000), size));
        at += size;
    }
    WriteFile(dir.File("small"), MakeZip(small));
}

bool TakeAllCB(void* /*context*/,
               const wxZipEntry* /*entry*/,
               const wxString* /*path*/)
{
    return true;
}

bool TakeNoneCB(void* /*context*/,
                const wxZipEntry* /*entry*/,
                const wxString* /*path*/)
{
    return false;
}

void Ours(const std::string& archive,
          const std::string& dest,
          KzaCore::UnzipCB callback = TakeAllCB)
{
    if (!KzaCore::Unzip(wxFileName(archive), wxFileName(dest, wxEmptyString),
                        callback, nullptr))
        Die("not unpacked");
}

void RunPeer(const std::string& peer,
             const std::string& archive,
             const std::string& dest)
{
    const std::string line = peer == "bsdtar"
                                 ? "bsdtar -xf '" + archive + "' -C '"
                                 : "unzip -q '" + archive + "' -d '";
    if (std::system((line + dest + "'").c_str()) != 0)
        Die(line);
}

void Compare(const std::string& question,
             const std::string& archive,
             const CTempDir& place,
             const std::string& peer,
             const char* bound)
{
    std::uint64_t size = 0;
    int count = 0;
    const auto fresh = [&]
    {
        std::string dest = place.File("tree" + std::to_string(count++));
        fs::create_directory(dest);
        return dest;
    };
    const auto best = Bench::BestOf(
        kTurns, [&] { Ours(archive, fresh()); },
        [&] { RunPeer(peer, archive, fresh()); });
    for (const auto& item : fs::recursive_directory_iterator(
             place.File("tree" + std::to_string(count - 1))))
        size += item.is_regular_file() ? item.file_size() : 0;
    Bench::Row(question, static_cast<double>(size) / best.ours / 1e6,
               static_cast<double>(size) / best.peer / 1e6, "MB/s", bound);
}

// What a walk over an archive adds to the resident memory of a process of its
// own; all entries are unpacked, or none.
void MeasureMemory(const std::string& question,
                   const std::string& archive,
                   const std::string& dest,
                   KzaCore::UnzipCB callback)
{
    fs::create_directory(dest);
    int result[2];
    if (pipe(result) != 0)
        Die("no pipe");
    const pid_t child = fork();
    if (child == 0)
    {
        rusage before = {};
        rusage after = {};
        getrusage(RUSAGE_SELF, &before);
        Ours(archive, dest, callback);
        getrusage(RUSAGE_SELF, &after);
        const double grown =
            static_cast<double>(after.ru_maxrss - before.ru_maxrss) / 1024;
        _exit(write(result[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
    }
    double grown = 0;
    if (read(result[0], &grown, sizeof grown) != sizeof grown ||
        waitpid(child, nullptr, 0) != child)
        Die("no measurement");
    Bench::Row(question, grown, 16, "MiB", "ours<=16");
}

// Empty files, a thousand to a directory.
void MakeManyEntries(const std::string& path, int count)
{
    std::vector<CZipInput> many;
    many.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
    {
        many.emplace_back(
            "d" + std::to_string(i / 1000) + "/f" + std::to_string(i), "");
        many.back().deflate = false;
    }
    CZipOptions options;
    options.zip64End = true;
    WriteFile(path, MakeZip(many, options));
}

} // namespace

int main()
{
    const wxInitializer framework;
    wxLog::SetActiveTarget(new wxLogStderr);
    const char* const build = std::getenv("KZA_BUILD_DIR");
    setenv("TMPDIR", build == nullptr ? "/var/tmp" : build, 1);
    const CTempDir disk;
    setenv("TMPDIR", "/dev/shm", 1);

    // The memory first: a process that has built archives has room to spare.
    const pid_t maker = fork();
    if (maker == 0)
    {
        MakeArchives(disk);
        MakeManyEntries(disk.File("100,000 files"), 100'000);
        MakeManyEntries(disk.File("1,000,000 entries"), 1'000'000);
        _exit(0);
    }
    if (waitpid(maker, nullptr, 0) != maker)
        Die("no archives");
    {
        const CTempDir memory;
        const auto measure =
            [&](const std::string& archive, KzaCore::UnzipCB callback)
        {
            MeasureMemory("unzip " + archive + ": memory above idle",
                          disk.File(archive), memory.File(archive), callback);
        };
        for (const char* archive : {"large", "small", "100,000 files"})
            measure(archive, TakeAllCB);
        measure("1,000,000 entries", TakeNoneCB);
    }
    for (const char* archive : {"large", "small"})
    {
        const std::string name = std::string("unzip ") + archive;
        const CTempDir memory;
        Compare(name + " on disk, bsdtar", disk.File(archive), disk, "bsdtar",
                ">=1");
        Compare(name + " on tmpfs, bsdtar", disk.File(archive), memory,
                "bsdtar", ">=1");
        const CTempDir again;
        Compare(name + " on tmpfs, unzip", disk.File(archive), again, "unzip",
                ">=1");
    }
}
