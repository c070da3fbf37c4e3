// SPDX-License-Identifier: Apache-2.0

#include "support/Heap.h"

#include <sys/resource.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KZA_SANITIZER_HEAP
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KZA_SANITIZER_HEAP
#endif

#ifdef KZA_SANITIZER_HEAP
// gcc has the function and not its header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

std::size_t TestSupport::HeapInUse()
{
#ifdef KZA_SANITIZER_HEAP
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

long TestSupport::PeakKiB()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}
