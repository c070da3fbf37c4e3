// SPDX-License-Identifier: Apache-2.0
//
// Runs a part of a test in a process of its own.

#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport
{

/// Runs the work in a forked child, so that mounts, locks and limits stay
/// there.
///
/// \return the child's wait status: exit status 1 after a failed expectation.
template <typename TWork>
int InChild(TWork&& work)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        work();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        continue; // a handler of the test ran
    return status;
}

} // namespace TestSupport
