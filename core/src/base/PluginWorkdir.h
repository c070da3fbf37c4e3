// SPDX-License-Identifier: Apache-2.0
//
// The working directories reserved for plugins.
//
// Threads: any.

#pragma once

class wxString;

namespace KzaCore
{

/// False for a name that cannot stand for one directory under another: empty,
/// `.`, `..`, or with a `/` or a NUL in it.
[[nodiscard]] bool IsPluginName(const wxString& plugin);

/// Sees to it that the directory of a plugin exists under `work` and is open
/// to its owner alone (0700). A symbolic link under that name is an error.
///
/// \param path   Out: the directory; empty when name or `work` cannot have one.
/// \param error  Out, after a failure: what was tried and why it failed.
[[nodiscard]] bool MakePluginWorkdir(const wxString& work,
                                     const wxString& plugin,
                                     wxString& path,
                                     wxString& error);

} // namespace KzaCore
