// SPDX-License-Identifier: Apache-2.0
//
// Access to the store of a domain, for the binding to Lua: it reads values
// without a copy.

#pragma once

#include "kza_core/Dom.h"

namespace KzaCore
{

inline CDomStore& StoreOf(CDom& dom)
{
    return *dom.m_store;
}

} // namespace KzaCore
