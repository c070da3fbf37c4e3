// SPDX-License-Identifier: Apache-2.0
//
// Trace lines, switched on by component.
//
// The set of traced components comes from the domain keys `app.trace` and
// `app.trace+` of the root domain: names separated by commas, `*` for all. It
// follows the keys while the process runs.
//
// Threads: any. A call costs a few nanoseconds while the component is off.

#pragma once

#include "kza_core/Export.h"

#include <wx/string.h>

namespace KzaCore
{

/// True when tracing is on for the component. Callers ask before they build a
/// text.
[[nodiscard]] KZA_API bool LogTraceIsEnabled(const wxString& component);

/// Writes one trace record to the disk log, whether or not the component is
/// enabled.
///
/// \param file      Source file; the record shows its name without directories.
/// \param line      Line in the file.
/// \param function  Name of the function.
KZA_API void LogTrace(const wxString& component,
                      const char* file,
                      int line,
                      const char* function,
                      const wxString& text);

} // namespace KzaCore
