// SPDX-License-Identifier: Apache-2.0
//
// Trace lines of the application's own component.

#pragma once

#include "AgentApp.h"

#include "kza_core/Trace.h"

/// Traces a text when the component is enabled; builds nothing otherwise.
#define APPL_TRACE(text)                                                       \
    do                                                                         \
    {                                                                          \
        if (KzaCore::LogTraceIsEnabled(CAgentApp::s_Trace))                    \
            KzaCore::LogTrace(CAgentApp::s_Trace, __FILE__, __LINE__,          \
                              static_cast<const char*>(__func__), text);       \
    } while (false)
