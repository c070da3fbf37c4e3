// SPDX-License-Identifier: Apache-2.0
//
// Included before each source where only the names of POSIX are asked for: what
// wx and the standard library of this compiler take for granted beyond them.

#pragma once

#include <bits/c++config.h>
#include <strings.h>

#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
