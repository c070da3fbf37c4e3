// SPDX-License-Identifier: Apache-2.0
//
// Hears of every change of one key of the root domain.
//
// CDom::Wait() is for a thread that has time to wait. A follower is for an
// event loop, which has none: the thread that made the change calls it.

#pragma once

#include "kza_core/Dom.h"
#include "kza_core/Export.h"

#include <functional>
#include <string>
#include <string_view>

namespace KzaCore
{

class KZA_API CKeyFollower
{
public:
    /// Called with the present value of the key: once by the constructor, then
    /// after each change, on the thread that made it and before the writing
    /// call returns. One call runs at a time in the process, and no call shows
    /// an older value than the one before. Changes by one thread come one by
    /// one. Must not wait, set a key, or make or destroy a follower.
    using ValueCB = std::function<void(const DomValue& value)>;

    /// Threads: any.
    CKeyFollower(const CDom& root, std::string key, ValueCB value);

    /// Once it has returned, no call runs any longer.
    ~CKeyFollower();

    CKeyFollower(const CKeyFollower&) = delete;
    CKeyFollower& operator=(const CKeyFollower&) = delete;

private:
    friend void NotifyKeyFollowers(const CDom& root, std::string_view key);

    const std::string m_key;
    const ValueCB m_value;
    CKeyFollower* m_next = nullptr; // guarded by the mutex of the list
};

} // namespace KzaCore
