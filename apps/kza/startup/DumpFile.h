// SPDX-License-Identifier: Apache-2.0
//
// Threads: the main thread.

#pragma once

class wxString;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Where a crash of the application leaves its dump; the directory is made when
/// it is missing.
[[nodiscard]] wxString DumpFile(const wxString& application,
                                const KzaCore::CDom& dom);
