// SPDX-License-Identifier: Apache-2.0
//
// The way from a domain to its store, for the binding to Lua: it reads without
// a copy of what it reads.

#pragma once

#include "kza_core/Dom.h"

namespace KzaCore
{

inline CDomStore& StoreOf(CDom& dom)
{
    return *dom.m_store;
}

} // namespace KzaCore
