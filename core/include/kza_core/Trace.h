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

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// True when tracing is on for the component. Test it before building a text.
[[nodiscard]] bool LogTraceIsEnabled(const wxString& component);

/// Writes one trace record to the disk log, whether or not the component is
/// enabled.
///
/// \param file      Source file; directories before its name are left out.
/// \param line      Line in it.
/// \param function  Name of the function.
KZA_API void LogTrace(const wxString& component,
                      const char* file,
                      int line,
                      const char* function,
                      const wxString& text);

namespace TraceDetail
{

// One bit for every hash of an enabled component: a clear bit answers "off"
// without looking at the names.
inline constexpr std::size_t kFilterWords = 16;
KZA_API extern std::atomic<std::uint64_t> g_filter[kFilterWords];

/// Looks the name up in the set itself.
[[nodiscard]] KZA_API bool IsInSet(const wxString& component);

inline std::uint32_t Hash(const wchar_t* name, std::size_t length)
{
    if (length == 0)
        return 0;
    const auto at = [name](std::size_t i)
    { return static_cast<std::uint32_t>(name[i]); };
    const std::uint32_t mix = at(0) + at(length - 1) * 31U +
                              at(length / 2) * 1009U +
                              static_cast<std::uint32_t>(length) * 40503U;
    return (mix * 2654435761U) >> 22; // top ten bits, Knuth's multiplier
}

} // namespace TraceDetail

inline bool LogTraceIsEnabled(const wxString& component)
{
    const std::uint32_t hash =
        TraceDetail::Hash(component.wx_str(), component.length());
    const std::uint64_t word =
        TraceDetail::g_filter[hash / 64].load(std::memory_order_relaxed);
    return ((word >> (hash % 64)) & 1U) != 0 && TraceDetail::IsInSet(component);
}

} // namespace KzaCore
