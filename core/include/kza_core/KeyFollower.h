// SPDX-License-Identifier: Apache-2.0
//
// A callback for every change of one key of the root domain.
//
// CDom::Wait() suits a thread that may block until the change. An event loop
// must not block and uses a follower instead: the thread that makes the change
// calls the follower's function.

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
    /// after each change, on the thread that made the change and before its
    /// writing call returns. One call runs at a time in the process, and no
    /// call shows an older value than the call before. Each change by one
    /// thread has its own call. The function must not wait, set a key, or make
    /// or destroy a follower.
    using ValueCB = std::function<void(const DomValue& value)>;

    /// Threads: any.
    CKeyFollower(const CDom& root, std::string key, ValueCB value);

    /// When the destructor has returned, no call of the function runs.
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
