// SPDX-License-Identifier: Apache-2.0
//
// What the thread sanitizer leaves out, built in so that the agent needs no
// settings in its environment wherever it is started.

// A tool ends the process from the script thread while the main thread is in
// the framework's event loop. The framework's static mutexes are destroyed
// then, and the loop may have used one before: a report about the destruction
// of a mutex. Left out by its topmost function and not by the library's name,
// which stands somewhere in every stack.
//
// The sanitizer asks before it is ready for code that it instrumented.
extern "C" __attribute__((visibility("default"), no_sanitize("thread")))
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char*
__tsan_default_suppressions()
{
    return "race_top:pthread_mutex_destroy\n";
}
