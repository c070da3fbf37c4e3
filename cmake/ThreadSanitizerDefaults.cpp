// SPDX-License-Identifier: Apache-2.0
//
// Settings of the thread sanitizer, built in so that the agent needs none in
// its environment wherever it is started.

// The sanitizer asks before it is ready for code that it instrumented.
#define SANITIZER_HOOK                                                         \
    extern "C" __attribute__((visibility("default"), no_sanitize("thread")))

// A tool ends the process from the script thread while the main thread is in
// the framework's event loop. The framework's static mutexes are destroyed
// then, and the loop may use one before and after: a report about the
// destruction of a mutex, or about the use of one that is destroyed. Left out
// by the function of the agent or the topmost one, not by the library's name,
// which stands somewhere in every stack.
//
// Two threads may be the first to use a mutex that the framework keeps in a
// function. The sanitizer does not see the look at it that keeps them apart.
//
// A second stop request ends the watchdog by exit() in the handler, which is
// more than a handler may do: it is promised so. The tests of this have
// functions of their own for it, and so has the test of a record that a handler
// writes.
SANITIZER_HOOK
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char* __tsan_default_suppressions()
{
    return "race_top:pthread_mutex_destroy\n"
           "mutex:CAgentApp::RunScriptApp\n"
           "race:wxMutex::wxMutex\n"
           "signal:CWatchdog::Supervise\n"
           "signal:UntilItEndsInHandler\n"
           "signal:LogInHandler\n";
}

// By default every process sleeps for a second at its end, so that threads may
// still race. The tests start hundreds.
SANITIZER_HOOK
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char* __tsan_default_options()
{
    return "atexit_sleep_ms=50";
}
