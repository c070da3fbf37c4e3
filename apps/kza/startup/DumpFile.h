// SPDX-License-Identifier: Apache-2.0
//
// The path of the application's crash dump.
//
// Threads: the main thread.

#pragma once

class wxString;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// The path that a crash of the application writes its dump to; the directory
/// is made when it is missing.
[[nodiscard]] wxString DumpFile(const wxString& application,
                                const KzaCore::CDom& dom);
