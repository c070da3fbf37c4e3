// SPDX-License-Identifier: Apache-2.0
//
// The root domain, and the services that follow keys of it.
//
// The domain knows no service. A service of a folder above makes a static
// CKeyObserver in its source, and the domain tells every observer, in the same
// way, of changed keys and of the end of the root domain.
//
// The list of observers is there before any constructor runs. So sources may
// register in any order, and before or after the first domain was made.
//
// Threads: any.

#pragma once

#include <cstddef>
#include <string_view>

namespace KzaCore
{

class CDom;

/// A service that follows keys. Objects are static, as is the array of their
/// keys, and never destroyed: a thread may write a key while the process ends.
///
/// The refresh function reads all keys of the service anew from the root
/// domain; a null pointer tells that the root domain is gone. It is called
/// - on the thread that set or removed one of the keys, once the change can be
///   read and before the writing call returns;
/// - on the thread that releases the root domain;
/// - on registration, when there is a root domain already.
///
/// One refresh runs at a time in the whole process. So the last one has read
/// the last change, and a service needs no lock to keep them in order. A
/// refresh sets no key, and makes and releases no domain.
class CKeyObserver
{
public:
    using RefreshCB = void (*)(const CDom* root);

    /// Registers the service, for the life of the process.
    template <std::size_t count>
    CKeyObserver(const std::string_view (&keys)[count],
                 RefreshCB refresh) noexcept
        : m_keys(keys), m_count(count), m_refresh(refresh)
    {
        Register();
    }

    CKeyObserver(const CKeyObserver&) = delete;
    CKeyObserver& operator=(const CKeyObserver&) = delete;

    [[nodiscard]] bool Follows(std::string_view key) const;
    void Refresh(const CDom* root) const { m_refresh(root); }
    [[nodiscard]] const CKeyObserver* Next() const { return m_next; }

private:
    void Register() noexcept;

    const std::string_view* const m_keys;
    const std::size_t m_count;
    const RefreshCB m_refresh;
    const CKeyObserver* m_next = nullptr; // never changes once registered
};

/// Makes the domain the root of the process unless there is one.
///
/// \return whether the domain is the root.
bool ClaimRoot(const CDom& dom);

/// Leaves the process without a root, and tells every observer, if the domain
/// is the root. No lock may be held.
void AbandonRoot(const CDom& dom);

/// Tells the observers of a key that it was set or removed in the root domain.
/// No lock may be held. Takes none when nothing follows the key.
void NotifyKeyObservers(const CDom& root, std::string_view key);

} // namespace KzaCore
