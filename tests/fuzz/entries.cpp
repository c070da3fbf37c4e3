// SPDX-License-Identifier: Apache-2.0
//
// The bytes choose names, kinds and contents of the entries of an archive that
// is otherwise in order, to be unpacked.

#include "Sandbox.h"

#include "support/Zip.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

using TestSupport::CZipInput;

namespace
{

// A name of parts that have a meaning in paths, in half of the cases with
// random bytes behind.
std::string Name(FuzzedDataProvider& data)
{
    static const char* const kParts[] = {
        "/",    "..",       ".",  "a",  "b",  "out", "link", "in",
        "file", "dangling", "\\", "//", "./", "../", "a/b",  "\xc3\xa4"};
    std::string name;
    const int parts = data.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < parts; ++i)
        name += kParts[data.ConsumeIntegralInRange<std::size_t>(
            0, std::size(kParts) - 1)];
    return data.ConsumeBool() ? name : name + data.ConsumeRandomLengthString(9);
}

CZipInput Entry(FuzzedDataProvider& data)
{
    static const mode_t kKinds[] = {0,       0100000, 0100000, 0100000,
                                    0040000, 0120000, 0020000, 0106000};
    CZipInput file(Name(data), data.ConsumeRandomLengthString(20));
    const bool isDirectory = !file.name.empty() && file.name.back() == '/';
    file.mode =
        (isDirectory && data.ConsumeBool() ? 0040000
                                           : data.PickValueInArray(kKinds)) |
        (data.ConsumeIntegral<mode_t>() & 0777);
    if (isDirectory && data.ConsumeBool())
        file.content.clear();
    file.deflate = data.ConsumeBool();
    file.sizesFollow = data.ConsumeBool();
    file.zip64 = data.ConsumeBool();
    if (data.ConsumeIntegralInRange(0, 15) == 0)
        file.crc = data.ConsumeIntegral<std::uint32_t>();
    if (data.ConsumeIntegralInRange(0, 15) == 0)
        file.size = data.ConsumeIntegral<std::uint64_t>();
    if (data.ConsumeIntegralInRange(0, 15) == 0)
        file.localName = Name(data);
    if (data.ConsumeIntegralInRange(0, 15) == 0)
        file.offset = data.ConsumeIntegral<std::uint8_t>();
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size)
{
    static Fuzz::CSandbox sandbox;
    FuzzedDataProvider data(bytes, size);
    std::vector<CZipInput> files;
    const int count = data.ConsumeIntegralInRange(1, 6);
    for (int i = 0; i < count; ++i)
        files.push_back(Entry(data));
    TestSupport::CZipOptions options;
    options.zip64End = data.ConsumeBool();
    sandbox.Unzip(TestSupport::MakeZip(files, options));
    return 0;
}
