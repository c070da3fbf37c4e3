// SPDX-License-Identifier: Apache-2.0
//
// A domain of a test's own.

#pragma once

#include "kza_core/Dom.h"

#include <memory>

namespace TestSupport
{

struct CReleaseDom
{
    void operator()(KzaCore::CDom* dom) const { dom->Release(); }
};

using DomPtr = std::unique_ptr<KzaCore::CDom, CReleaseDom>;

/// The first one that a process has is its root.
inline DomPtr NewDom()
{
    return DomPtr(KzaCore::CDom::New(nullptr, nullptr, nullptr, false));
}

} // namespace TestSupport
