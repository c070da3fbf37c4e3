// SPDX-License-Identifier: Apache-2.0

#include "process/ThreadLog.h"

#include <atomic>

namespace KzaCore
{

namespace
{

// Initialised at compile time: the log's static object may come first.
std::atomic<wxLog* (*)()> s_target{nullptr};

} // namespace

CThreadLogTarget::CThreadLogTarget(wxLog* (*target)()) noexcept
{
    s_target = target;
}

wxLog* ThreadLogTarget()
{
    wxLog* (*const target)() = s_target;
    return target == nullptr ? nullptr : target();
}

} // namespace KzaCore
