// SPDX-License-Identifier: Apache-2.0
//
// The working directories reserved for plugins.
//
// Threads: any.

#pragma once

#include "kza_core/Owner.h"

class wxString;

namespace KzaCore
{

/// False for a name that cannot stand for one directory under another: empty,
/// `.`, `..`, or with a `/` or a NUL in it.
[[nodiscard]] bool IsPluginName(const wxString& plugin);

/// Makes the directory of a plugin under `work`, unless it exists, and gives
/// access to its owner alone (0700). A symbolic link under that name is an
/// error.
///
/// \param rule   For a directory that belongs to another user.
/// \param path   Out: the directory; empty when the name is not one for a
///               plugin, `work` is empty, or its owner is refused.
/// \param error  Out, after a failure: the attempt and the reason, as a text.
[[nodiscard]] bool MakePluginWorkdir(const wxString& work,
                                     const wxString& plugin,
                                     EOwnerRule rule,
                                     wxString& path,
                                     wxString& error);

} // namespace KzaCore
