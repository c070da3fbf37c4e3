// SPDX-License-Identifier: Apache-2.0
//
// The root domain, and the services that follow keys of it.
//
// The domain knows no service. A service of a higher folder makes a static
// CKeyObserver in its source, and the domain tells every observer of changed
// keys and of the end of the root domain.
//
// The list of observers is initialised at compile time. Sources may therefore
// register in any order, and before or after the first domain was made.
//
// Threads: any.

#pragma once

#include <cstddef>
#include <string_view>

namespace KzaCore
{

class CDom;

/// A service that follows keys. Objects and their arrays of keys are static and
/// never destroyed, because a thread may write a key while the process ends.
///
/// The refresh function reads all keys of the service again from the root
/// domain; a null pointer says that there is no root domain any more. It is
/// called
/// - on the thread that set or removed one of the keys, once the change can be
///   read and before the writing call returns;
/// - on the thread that releases the root domain;
/// - on registration, when there is a root domain already.
///
/// One refresh runs at a time in the whole process. The last refresh has
/// therefore read the last change, and a service needs no lock to keep the
/// refreshes in order. A refresh function must not set a key, nor make or
/// release a domain.
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

/// If the domain is the root, leaves the process without a root and tells every
/// observer. The caller holds no lock.
void AbandonRoot(const CDom& dom);

/// Tells the observers of a key that the key was set or removed in the root
/// domain. The caller holds no lock. Takes no lock when no observer follows the
/// key.
void NotifyKeyObservers(const CDom& root, std::string_view key);

} // namespace KzaCore
