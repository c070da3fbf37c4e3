// SPDX-License-Identifier: Apache-2.0
//
// Paths without symbolic links in them.
//
// Threads: any.

#pragma once

#include <cstdlib>
#include <memory>
#include <string>

namespace KzaCore
{

/// The absolute path that a path leads to, free of links, "." and ".."; empty
/// with errno set when it leads to no file.
[[nodiscard]] inline std::string RealPath(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> real(
        realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : std::string();
}

} // namespace KzaCore
