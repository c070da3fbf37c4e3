// SPDX-License-Identifier: Apache-2.0
//
// The bytes are an archive, to be unpacked.

#include "Sandbox.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size)
{
    static Fuzz::CSandbox sandbox;
    sandbox.Unzip(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
