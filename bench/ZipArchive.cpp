// SPDX-License-Identifier: Apache-2.0
//
// What does it cost to open an archive of 100,000 entries, and to find one?
//
// Peer of the first: the framework's zip stream, which reads the directory
// too. Peer of the second: the same look-up among 100 entries.

#include "Bench.h"

#include "support/TempDir.h"
#include "support/Zip.h"

#include "archive/ZipArchive.h"

#include <wx/wfstream.h>
#include <wx/zipstrm.h>

#include <cstdlib>

using namespace TestSupport;
using KzaCore::CZipArchive;

namespace
{

constexpr int kTurns = 7;
constexpr int kFinds = 200'000;

std::string NameOf(int i)
{
    return "some/module" + std::to_string(i) + ".lua";
}

std::string MakeArchive(const CTempDir& dir, int entries)
{
    std::vector<CZipInput> files;
    for (int i = 0; i < entries; ++i)
    {
        files.emplace_back(NameOf(i), "");
        files.back().deflate = false;
    }
    CZipOptions options;
    options.zip64End = entries > 0xFFFF;
    std::string path = dir.File(std::to_string(entries));
    WriteFile(path, MakeZip(files, options));
    return path;
}

void Open(CZipArchive& archive, const std::string& path)
{
    std::string error;
    if (!archive.Open(path, error))
        std::exit(1);
}

// The same number of look-ups, spread over all entries.
auto Finds(const CZipArchive& archive, int entries)
{
    std::vector<std::string> names;
    for (int i = 0; i < 100; ++i)
        names.push_back(NameOf(entries / 100 * i));
    return [&archive, names]
    {
        for (int i = 0; i < kFinds; ++i)
            Bench::Keep(archive.Find(names[static_cast<std::size_t>(i) % 100]));
    };
}

} // namespace

int main()
{
    const CTempDir dir;
    const std::string many = MakeArchive(dir, 100'000);
    const std::string few = MakeArchive(dir, 100);
    const auto open = Bench::BestOf(
        kTurns,
        [&]
        {
            CZipArchive archive;
            Open(archive, many);
        },
        [&]
        {
            wxFFileInputStream file(many);
            wxZipInputStream stream(file);
            int count = 0;
            for (const wxZipEntry* entry = stream.GetNextEntry();
                 entry != nullptr; entry = stream.GetNextEntry())
            {
                delete entry;
                ++count;
            }
            if (count != 100'000)
                std::exit(1);
        });
    Bench::Row("archive of 100,000 entries: open and index", open.ours * 1e3,
               open.peer * 1e3, "ms", "ours<=60");

    CZipArchive manyArchive;
    Open(manyArchive, many);
    CZipArchive fewArchive;
    Open(fewArchive, few);
    const auto find = Bench::BestOf(kTurns, Finds(manyArchive, 100'000),
                                    Finds(fewArchive, 100));
    Bench::Row("look-up among 100,000 entries, among 100",
               find.ours / kFinds * 1e9, find.peer / kFinds * 1e9, "ns", "<=3");
}
