// SPDX-License-Identifier: Apache-2.0
//
// The values of a domain.
//
// A reader follows two atomic pointers, from the store to its index and from a
// node of the index to its value. It takes no lock and writes to no memory that
// other threads read. A writer that replaces the value of a set key takes no
// lock either: if the system suspended it while it held one, all other writers
// would wait. Writers that set an unset key or remove one take turns under one
// mutex, as do waiters. A value never changes; when it is replaced, it is freed
// once no reader can use it any longer (Epoch.h).
//
// DomStore.cpp opens with the steps of writer, reader and waiter.
//
// Threads: any. A child that was forked from a process with one thread goes on.

#pragma once

#include "base/Hash.h"
#include "base/Mutex.h"
#include "domain/Epoch.h"
#include "domain/SameKey.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace KzaCore
{

class CDom;
class CWakeUp;

using DomContent = std::variant<std::string, bool, long long>;

/// One value; never changes.
struct CDomValue final : CRetirable
{
    explicit CDomValue(DomContent value) : content(std::move(value)) {}

    const DomContent content;
};

// The padding keeps the members that writers change on other cache lines than
// those that readers use.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
class CDomStore
{
public:
    /// \param root  The root domain, whose observers and followers are told of
    ///              changes; null for a store that tells none.
    explicit CDomStore(const CDom* root);
    ~CDomStore();

    CDomStore(const CDomStore&) = delete;
    CDomStore& operator=(const CDomStore&) = delete;

    void SetString(std::string_view key, std::string_view value);
    void SetBool(std::string_view key, bool value);
    void SetInteger(std::string_view key, long long value);
    void Remove(std::string_view key);

    /// Calls `use(const DomContent&)` when the key is set. The reference is
    /// good during the call, which may use the store itself.
    ///
    /// \return whether the key is set.
    template <typename TUse>
    bool Read(std::string_view key, TUse use) const
    {
        const std::uint64_t hash = HashBytes(key);
        const CEpochGuard guard;
        const CNode* const node = Find(Load(m_index), key, hash);
        const CDomValue* const value = node ? Load(node->value) : nullptr;
        if (value == nullptr)
            return false;
        use(value->content);
        return true;
    }

    [[nodiscard]] std::vector<std::string> Keys(std::string_view prefix) const;

    /// See CDom. A key that one of these two functions was called for keeps its
    /// node for the life of the store, set or not, and so its generation.
    [[nodiscard]] std::uint64_t Generation(std::string_view key);
    [[nodiscard]] bool Wait(std::string_view key,
                            std::chrono::milliseconds timeout,
                            std::uint64_t& seen);

private:
    // One key; lives as long as the index has it. An unset node gets a value
    // only under the mutex. The members that never change are on a cache line
    // of their own, which stays in the caches of readers.
    struct alignas(64) CNode final : CRetirable
    {
        CNode(std::string_view nodeKey, std::uint64_t nodeHash)
            : key(nodeKey), hash(nodeHash)
        {
        }

        const std::string key;
        const std::uint64_t hash;
        alignas(64) std::atomic<const CDomValue*> value{nullptr}; // null: unset
        std::atomic<std::uint64_t> generation{0}; // counts changes
        std::atomic<std::size_t> waiting{0};      // the number of waiters
        std::vector<CWakeUp*> waiters; // guarded by the store's m_mutex
        bool pinned = false;           // guarded by the store's m_mutex
    };

    struct CIndex;
    class CWaiting;

    // Deletes a value unless it is one of the two booleans.
    struct CFree
    {
        void operator()(const CDomValue* value) const;
    };
    using ValuePtr = std::unique_ptr<const CDomValue, CFree>;

    template <typename T>
    static T* Load(const std::atomic<T*>& pointer)
    {
        return pointer.load(std::memory_order_seq_cst);
    }

    static CNode* Find(const CIndex* index,
                       std::string_view key,
                       std::uint64_t hash);

    void Store(std::string_view key, ValuePtr value);
    bool Replace(std::string_view key, std::uint64_t hash, ValuePtr& value);
    void Insert(std::string_view key, std::uint64_t hash, ValuePtr value);
    bool Unset(std::string_view key);
    void Announce(CNode& node, const CDomValue* old);
    CNode& FindOrAdd(std::string_view key, std::uint64_t hash)
        KZA_REQUIRES(m_mutex);
    CNode& Pin(std::string_view key);
    void TellServices(std::string_view key) const;
    void Rebuild() KZA_REQUIRES(m_mutex);

    const CDom* const m_root;
    std::atomic<CIndex*> m_index;

    // Guards also the change of a key from unset to set and back, and the lists
    // of waiters. On a cache line that readers do not use.
    alignas(64) mutable CMutex m_mutex;
    std::size_t m_nodes KZA_GUARDED_BY(m_mutex) = 0;   // in the index
    std::size_t m_removed KZA_GUARDED_BY(m_mutex) = 0; // unset, not pinned
};

} // namespace KzaCore
