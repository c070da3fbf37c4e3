// SPDX-License-Identifier: Apache-2.0
//
// The digest that stands for the content of a file where signatures are made
// and checked.

#pragma once

#include <array>

namespace KzaCore
{

/// A SHA-256 digest.
using TDigest = std::array<unsigned char, 32>;

} // namespace KzaCore
