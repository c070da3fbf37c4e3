// SPDX-License-Identifier: Apache-2.0
//
// How much memory the process has allocated.

#pragma once

#include <cstddef>

namespace TestSupport
{

/// Bytes allocated and not freed yet, by all threads; also under a sanitizer,
/// which has a heap of its own.
std::size_t HeapInUse();

/// The most memory that the process has had so far, in KiB; of a forked child
/// without what its parent had before.
long PeakKiB();

} // namespace TestSupport
