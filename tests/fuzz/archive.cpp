// SPDX-License-Identifier: Apache-2.0
//
// The bytes are an archive, to be opened, indexed and read.

#include "archive/ZipArchive.h"
#include "support/TempDir.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using KzaCore::CZipArchive;
using KzaCore::CZipEntry;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size)
{
    static const TestSupport::CTempDir dir;
    static const std::string path = dir.File("archive");
    TestSupport::WriteFile(
        path, std::string(reinterpret_cast<const char*>(data), size));

    CZipArchive archive;
    std::string error;
    if (!archive.Open(path, error))
    {
        if (error.empty() || !archive.Entries().empty())
            std::abort();
        return 0;
    }
    for (const CZipEntry& entry : archive.Entries())
    {
        const CZipEntry* const found = archive.Find(entry.name);
        if (found == nullptr || found->name != entry.name)
            std::abort();
        std::string bytes;
        error.clear();
        if (archive.Read(entry, bytes, error) ? bytes.size() != entry.size
                                              : error.empty())
            std::abort();
    }
    return 0;
}
