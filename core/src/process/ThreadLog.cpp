// SPDX-License-Identifier: Apache-2.0

#include "process/ThreadLog.h"

#include <atomic>

namespace KzaCore
{

namespace
{

// Initialised at compile time, because the constructor of the log's static
// object may run before other static objects of this file exist.
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
