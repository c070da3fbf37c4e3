// SPDX-License-Identifier: Apache-2.0
//
// The agent's version, for dumps.
//
// Threads: any.

#pragma once

namespace KzaCore
{

class CDom;

/// Takes the version from the domain's key `app.version`; to be called when it
/// changed. It is in the dumps that are armed afterwards.
void RefreshCrashVersion(const CDom& dom);

} // namespace KzaCore
