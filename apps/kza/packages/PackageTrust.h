// SPDX-License-Identifier: Apache-2.0
//
// The decision whether packages must be signed, and by which keys.
//
// Threads: one object belongs to one thread.

#pragma once

#include "kza_core/PackageKeys.h"

namespace KzaCore
{
class CDom;
} // namespace KzaCore

class CPackageTrust
{
public:
    /// \param dom  Holds `packages.keys`, the directory of the keys; outlives
    ///             the object.
    explicit CPackageTrust(const KzaCore::CDom& dom);

    /// The keys that may sign packages, null when no signature is required. The
    /// first call reads the keys and logs problems with them.
    [[nodiscard]] const KzaCore::CPackageKeys* Keys();

private:
    void ReadKeys();

    const KzaCore::CDom& m_dom;
    const bool m_areKeysNeeded;
    bool m_areKeysRead = false;
    KzaCore::CPackageKeys m_keys;
};
