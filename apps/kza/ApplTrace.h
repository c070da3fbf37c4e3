// SPDX-License-Identifier: Apache-2.0
//
// Trace lines of the application's own component.

#pragma once

#include "kza_core/Trace.h"

#include <wx/string.h>

/// The component; CAgentApp::s_Trace is the same.
inline const wxString kApplTrace("Appl");

/// Traces a text when the component is enabled; else does not evaluate it.
#define APPL_TRACE(text)                                                       \
    do                                                                         \
    {                                                                          \
        if (KzaCore::LogTraceIsEnabled(kApplTrace))                            \
            KzaCore::LogTrace(kApplTrace, __FILE__, __LINE__,                  \
                              static_cast<const char*>(__func__), text);       \
    } while (false)
