// SPDX-License-Identifier: Apache-2.0
//
// Marks that tell clang which lock guards which data: `./dev check clang` fails
// where a guarded member is used without its lock. For other compilers the
// marks are empty.
//
// The analysis follows a lock through one function. A function that expects
// the lock to be held says so with KZA_REQUIRES, and one that takes it itself
// with KZA_EXCLUDES.

#pragma once

#if defined(__clang__)
#define KZA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KZA_THREAD_ATTRIBUTE(x)
#endif

// Of a class: its objects are locks, or hold one for their life.
#define KZA_CAPABILITY(kind) KZA_THREAD_ATTRIBUTE(capability(kind))
#define KZA_SCOPED_CAPABILITY KZA_THREAD_ATTRIBUTE(scoped_lockable)

// Of a member or variable: used only while the lock is held.
#define KZA_GUARDED_BY(lock) KZA_THREAD_ATTRIBUTE(guarded_by(lock))

// Of a lock: never taken while the other one is held.
#define KZA_ACQUIRED_BEFORE(...)                                               \
    KZA_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))

// Of a function: called with the locks held, or without them.
#define KZA_REQUIRES(...) KZA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KZA_EXCLUDES(...) KZA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// Of a function: takes or releases the locks, its own object without a name.
#define KZA_ACQUIRE(...) KZA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KZA_RELEASE(...) KZA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KZA_TRY_ACQUIRE(...)                                                   \
    KZA_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))

// Of a function that the analysis cannot follow; its comment says why it is
// right.
#define KZA_UNCHECKED_LOCKS KZA_THREAD_ATTRIBUTE(no_thread_safety_analysis)
