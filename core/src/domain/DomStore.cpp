// SPDX-License-Identifier: Apache-2.0
//
// The steps of writer, reader and waiter, and why they fit together. All loads
// and stores of pointers, generations and counts of waiters are sequentially
// consistent: every thread agrees on one order of them.
//
// A reader, under an epoch guard,
//   R1  loads the index and finds the node of the key,
//   R2  loads the node's value and uses it.
// A writer, under an epoch guard,
//   W1  finds the node as in R1,
//   W2  puts the new value in the place of the old one: Replace() by
//       compare-and-swap while the node is set; Insert() and Unset() under the
//       mutex, when the node is unset before or after,
//   W3  retires the old value,
//   W4  adds one to the node's generation,
//   W5  loads the node's count of waiters and is done if it is 0,
//   W6  takes the mutex and notifies each waiting thread.
// A waiter, which has seen an earlier generation,
//   A1  pins the node under the mutex,
//   A2  enters itself into the node's waiters under the mutex, and stores their
//       count,
//   A3  compares the generation with the one seen, under its own wake-up's
//       mutex, and sleeps while they are equal.
//
//   1. No reader uses freed memory. It reaches index, node and value through
//      guarded pointers, and each is retired only after the pointer to it was
//      replaced (Epoch.cpp).
//   2. No write is lost in a node that is no longer in the index. Rebuild()
//      leaves out only unset nodes, under the mutex. Replace() never sets an
//      unset node, and Insert() looks the node up in the present index under
//      the mutex.
//   3. A thread that loads a generation and then the value gets the value of
//      that change or a later one: W2 comes before W4.
//   4. No waiter misses a change. Either W5 comes after A2: the writer sees the
//      waiter, and W6 notifies it. CWakeUp::Notify() takes the wake-up's mutex,
//      so the waiter either has yet to compare (A3) or is asleep already and
//      wakes. Or W5 comes before A2: then W4 comes before A3, and A3 finds the
//      new generation.
//   5. No change between two waits is missed. A pinned node stays in every
//      later index (A1), and so does its generation.
//   6. No writer notifies a thread that has ended. A waiter leaves the list
//      under the mutex, and W6 holds the mutex.

#include "domain/DomStore.h"

#include "domain/KeyFollowers.h"
#include "domain/KeyObservers.h"
#include "process/WakeUp.h"

#include <algorithm>

namespace KzaCore
{

namespace
{

constexpr std::size_t kSmallestIndex = 64;
constexpr std::size_t kFewRemoved = 64;

// The two values for booleans, which all keys share. They are never freed,
// because a thread may still read while the process ends.
const CDomValue* SharedBool(bool value)
{
    static const CDomValue* const s_true = new CDomValue(DomContent(true));
    static const CDomValue* const s_false = new CDomValue(DomContent(false));
    return value ? s_true : s_false;
}

bool IsShared(const CDomValue* value)
{
    return value != nullptr && std::holds_alternative<bool>(value->content);
}

std::size_t SizeOf(const CDomValue& value)
{
    const auto* const text = std::get_if<std::string>(&value.content);
    return sizeof(value) + (text == nullptr ? 0 : text->capacity());
}

} // namespace

// An open-addressing table with linear probing. Nodes are added in place while
// other threads read. A table that becomes too full, or holds too many removed
// keys, is replaced by a new one.
struct CDomStore::CIndex final : CRetirable
{
    explicit CIndex(std::size_t size)
        : slots(size), mask(size - 1), shift(ShiftFor(size))
    {
    }

    void Add(CNode& node)
    {
        std::size_t at = First(node.hash);
        while (slots[at].load(std::memory_order_relaxed) != nullptr)
            at = (at + 1) & mask;
        slots[at].store(&node, std::memory_order_seq_cst);
    }

    // The slot where a search begins.
    [[nodiscard]] std::size_t First(std::uint64_t hash) const
    {
        return hash >> shift;
    }

    static unsigned ShiftFor(std::size_t size)
    {
        unsigned shift = 64;
        for (; size > 1; size /= 2)
            --shift;
        return shift;
    }

    std::vector<std::atomic<CNode*>> slots; // a power of two of them
    const std::size_t mask;
    const unsigned shift;
};

// Step A2: the calling thread is among a node's waiters while this exists.
class CDomStore::CWaiting
{
public:
    CWaiting(CMutex& mutex, CNode& node, CWakeUp& thread)
        : m_mutex(mutex), m_node(node), m_thread(thread)
    {
        const CLock lock(m_mutex);
        m_node.waiters.push_back(&m_thread);
        m_node.waiting.store(m_node.waiters.size(), std::memory_order_seq_cst);
    }

    ~CWaiting()
    {
        const CLock lock(m_mutex);
        auto& waiters = m_node.waiters;
        waiters.erase(std::find(waiters.begin(), waiters.end(), &m_thread));
        m_node.waiting.store(waiters.size(), std::memory_order_seq_cst);
    }

    CWaiting(const CWaiting&) = delete;
    CWaiting& operator=(const CWaiting&) = delete;

private:
    CMutex& m_mutex;
    CNode& m_node;
    CWakeUp& m_thread;
};

void CDomStore::CFree::operator()(const CDomValue* value) const
{
    if (!IsShared(value))
        delete value;
}

CDomStore::CDomStore(const CDom* root)
    : m_root(root), m_index(new CIndex(kSmallestIndex))
{
}

CDomStore::~CDomStore()
{
    const std::unique_ptr<const CIndex> index(Load(m_index));
    for (const auto& slot : index->slots)
    {
        const std::unique_ptr<const CNode> node(Load(slot));
        if (node)
            CFree()(Load(node->value));
    }
}

void CDomStore::SetString(std::string_view key, std::string_view value)
{
    Store(key, ValuePtr(new CDomValue(DomContent(std::string(value)))));
}

void CDomStore::SetBool(std::string_view key, bool value)
{
    Store(key, ValuePtr(SharedBool(value)));
}

void CDomStore::SetInteger(std::string_view key, long long value)
{
    Store(key, ValuePtr(new CDomValue(DomContent(value))));
}

void CDomStore::Remove(std::string_view key)
{
    if (!Unset(key))
        return;
    FreeRetired();
    TellServices(key);
}

std::vector<std::string> CDomStore::Keys(std::string_view prefix) const
{
    std::vector<std::string> keys;
    {
        // Under the lock the keys are those of one instant: no key becomes set
        // or unset during the walk.
        const CLock lock(m_mutex);
        for (const auto& slot : Load(m_index)->slots)
        {
            const CNode* const node = Load(slot);
            if (node != nullptr && Load(node->value) != nullptr &&
                node->key.compare(0, prefix.size(), prefix) == 0)
                keys.push_back(node->key);
        }
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::uint64_t CDomStore::Generation(std::string_view key)
{
    return Pin(key).generation.load(std::memory_order_acquire);
}

bool CDomStore::Wait(std::string_view key,
                     std::chrono::milliseconds timeout,
                     std::uint64_t& seen)
{
    CNode& node = Pin(key);
    const auto generation = [&node]
    { return node.generation.load(std::memory_order_seq_cst); };

    const std::shared_ptr<CWakeUp> self = CWakeUp::Current();
    if (timeout.count() > 0 && generation() == seen)
    {
        const CWaiting waiting(m_mutex, node, *self);
        self->WaitFor(timeout, [&] { return generation() != seen; });
    }
    const bool isToStop = self->HearStop();
    const std::uint64_t before = seen;
    seen = generation();
    return seen != before && !isToStop;
}

CDomStore::CNode* CDomStore::Find(const CIndex* index,
                                  std::string_view key,
                                  std::uint64_t hash)
{
    for (std::size_t at = index->First(hash);; at = (at + 1) & index->mask)
    {
        CNode* const node = Load(index->slots[at]);
        if (node == nullptr ||
            (node->hash == hash && IsSameKey(node->key, key)))
            return node;
    }
}

void CDomStore::Store(std::string_view key, ValuePtr value)
{
    const std::uint64_t hash = HashBytes(key);
    {
        const CEpochGuard guard;
        if (!Replace(key, hash, value))
            Insert(key, hash, std::move(value));
    }
    FreeRetired();
    TellServices(key);
}

// Only the store of the root domain tells services of changes.
void CDomStore::TellServices(std::string_view key) const
{
    if (m_root == nullptr)
        return;
    NotifyKeyObservers(*m_root, key);
    NotifyKeyFollowers(*m_root, key);
}

// When the key is set, takes the value and returns true. Called under a guard.
bool CDomStore::Replace(std::string_view key,
                        std::uint64_t hash,
                        ValuePtr& value)
{
    CNode* const node = Find(Load(m_index), key, hash);
    const CDomValue* old = node ? Load(node->value) : nullptr;
    do
    {
        if (old == nullptr)
            return false;
    } while (!node->value.compare_exchange_weak(old, value.get(),
                                                std::memory_order_seq_cst));
    (void)value.release();
    Announce(*node, old);
    return true;
}

// Called under a guard.
void CDomStore::Insert(std::string_view key, std::uint64_t hash, ValuePtr value)
{
    CLock lock(m_mutex);
    CNode& node = FindOrAdd(key, hash);
    const CDomValue* const old =
        node.value.exchange(value.release(), std::memory_order_seq_cst);
    if (old == nullptr && !node.pinned)
        --m_removed;
    lock.Unlock();
    Announce(node, old);
}

// Returns whether the key was set.
bool CDomStore::Unset(std::string_view key)
{
    const CEpochGuard guard;
    CLock lock(m_mutex);
    CNode* const node = Find(Load(m_index), key, HashBytes(key));
    if (node == nullptr || Load(node->value) == nullptr)
        return false;
    const CDomValue* const old =
        node->value.exchange(nullptr, std::memory_order_seq_cst);
    if (!node->pinned)
        ++m_removed;
    if (m_removed > kFewRemoved && m_removed > m_nodes / 2)
        Rebuild();
    lock.Unlock();
    Announce(*node, old);
    return true;
}

// Steps W3 to W6. Called under a guard and without the lock.
void CDomStore::Announce(CNode& node, const CDomValue* old)
{
    if (old != nullptr && !IsShared(old))
        Retire(old, SizeOf(*old));
    node.generation.fetch_add(1, std::memory_order_seq_cst);
    if (node.waiting.load(std::memory_order_seq_cst) == 0)
        return;
    const CLock lock(m_mutex);
    for (CWakeUp* const thread : node.waiters)
        thread->Notify();
}

// A new node counts as removed until it gets its value.
CDomStore::CNode& CDomStore::FindOrAdd(std::string_view key, std::uint64_t hash)
{
    CNode* const found = Find(Load(m_index), key, hash);
    if (found != nullptr)
        return *found;

    auto node = std::make_unique<CNode>(key, hash);
    if (m_nodes >= Load(m_index)->slots.size() / 2)
        Rebuild();
    Load(m_index)->Add(*node);
    ++m_nodes;
    ++m_removed;
    return *node.release();
}

// Step A1: the key's node stays in the index from now on.
CDomStore::CNode& CDomStore::Pin(std::string_view key)
{
    const CLock lock(m_mutex);
    CNode& node = FindOrAdd(key, HashBytes(key));
    if (!node.pinned && Load(node.value) == nullptr)
        --m_removed;
    node.pinned = true;
    return node;
}

// Replaces the index by one without the removed keys, large enough for twice as
// many keys as are left.
void CDomStore::Rebuild()
{
    const std::size_t kept = m_nodes - m_removed;
    std::size_t size = kSmallestIndex;
    while (size < kept * 4)
        size *= 2;
    auto index = std::make_unique<CIndex>(size);

    const CIndex* const old = Load(m_index);
    std::vector<const CNode*> removed;
    removed.reserve(m_removed);
    for (const auto& slot : old->slots)
    {
        CNode* const node = Load(slot);
        if (node == nullptr)
            continue;
        if (node->pinned || Load(node->value) != nullptr)
            index->Add(*node);
        else
            removed.push_back(node);
    }
    m_index.store(index.release(), std::memory_order_seq_cst);
    m_nodes = kept;
    m_removed = 0;

    for (const CNode* const node : removed)
        Retire(node, sizeof(*node) + node->key.capacity());
    Retire(old, sizeof(*old) + old->slots.size() * sizeof(old->slots[0]));
}

} // namespace KzaCore
