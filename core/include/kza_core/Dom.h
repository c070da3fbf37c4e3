// SPDX-License-Identifier: Apache-2.0
//
// The domain: the process-wide store of named values.
//
// A value is a string, a boolean or a 64-bit integer. Keys and strings are
// bytes, UTF-8 by convention; the Wx forms convert.
//
// Threads: every operation is atomic and may be called from any thread. Reads
// take no lock and scale with the readers. Nothing here may be called from a
// signal handler, and nothing while another thread of the process forks.

#pragma once

#include "kza_core/Export.h"

#include <wx/string.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

struct lua_State;

namespace KzaCore
{

class CAgentEvent;
class CDomStore;
enum class EOwnerRule;

/// Names of the keys that more than one file uses.
namespace DomKey
{
// Written by the command line and start-up steps; strings unless noted.
inline constexpr char kPathExe[] = "app.path.exe";
inline constexpr char kPathBin[] = "app.path.bin";
inline constexpr char kPathLib[] = "app.path.lib";
inline constexpr char kPathVendor[] = "app.path.ov";
inline constexpr char kPathWork[] = "app.path.work";
inline constexpr char kPathIni[] = "app.path.ini";
inline constexpr char kPathIniGlobal[] = "app.path.ini.global";
inline constexpr char kName[] = "app.name";
inline constexpr char kVersion[] = "app.version";
inline constexpr char kBackground[] = "app.background"; // bool
inline constexpr char kPlugins[] = "app.plugins";
inline constexpr char kUnitTestMode[] = "app.mode.unittest"; // bool
inline constexpr char kFipsMode[] = "app.fipsmode";
inline constexpr char kFullDump[] = "app.fulldump"; // bool
inline constexpr char kLuaPath[] = "app.lua.path";
inline constexpr char kLuaCPath[] = "app.lua.cpath";
// Archives that modules are searched in, joined by ";".
inline constexpr char kLuaZipPath[] = "app.lua.zippath";
// Trace components, separated by commas; may change at any time.
inline constexpr char kTrace[] = "app.trace";
inline constexpr char kTraceMore[] = "app.trace+";
// Set true to ask for a heartbeat at once (bool).
inline constexpr char kHeartbeatNow[] = "kza.HeartbeatNow";
// Settings of the disk log: bytes before it rotates, files kept beside the
// current one (integers), records repeated on standard error (a level "error",
// "warning", "message", "info" or "debug", or a bool for all or none; unset, it
// is "warning" on a terminal).
inline constexpr char kLogMaxSize[] = "log.maxsize";
inline constexpr char kLogKeep[] = "log.keep";
inline constexpr char kLogConsole[] = "log.console";
// Whether the agent serves requests on a socket (bool, 1 or "1" and "true");
// read when the application starts.
inline constexpr char kControlSocket[] = "control.socket";
// Directory of the public keys that may sign packages; unset, packages need no
// signature. Set by the operator before packages are applied.
inline constexpr char kPackageKeys[] = "packages.keys";
// What others can change is refused and not only warned of (bool, 1 or "1" and
// "true").
inline constexpr char kStrictOwner[] = "strict.owner";
// Prefix of the keys for SQLite's settings (integers).
inline constexpr char kSqlitePrefix[] = "sqlite.config";
} // namespace DomKey

/// A value of any type, or none.
using DomValue = std::variant<std::monostate, std::string, bool, long long>;

/// True for true, 1, "1" and "true": a setting comes from Lua as what it is,
/// from everywhere else as text.
[[nodiscard]] KZA_API bool IsSwitchedOn(const DomValue& value);

class KZA_API CDom
{
public:
    /// Makes a domain. The first one made without a parent is the root of the
    /// process, from which log and trace take their settings, until released.
    ///
    /// \param name      Reserved for messages; may be null, is not kept.
    /// \param parent    Reserved, must be null.
    /// \param created   When not null, set to true.
    /// \param reserved  Must be false.
    ///
    /// \return never null; give it back with Release().
    static CDom* New(const char* name,
                     CDom* parent,
                     bool* created,
                     bool reserved);

protected:
    virtual ~CDom();

public:
    /// Gives the domain back to the library, which deletes it. No thread may
    /// use it any longer.
    virtual void Release();

    CDom(const CDom&) = delete;
    CDom& operator=(const CDom&) = delete;

    // Writing. A later value replaces the earlier one, also one of another
    // type.

    void Set(const std::string& key, const std::string& value);
    void Set(const std::string& key, const char* value);
    void Set(const std::string& key, bool value);
    void Set(const std::string& key, long long value);
    void SetWx(const wxString& key, const wxString& value);
    void SetWx(const wxString& key, long long value);

    /// Makes the key unset again; waiters wake as for a new value. Does
    /// nothing to an unset key.
    void Remove(const std::string& key);

    // Reading. A read of another type than the stored one behaves as for an
    // unset key.

    /// The stored string, empty when unset.
    [[nodiscard]] std::string Get(const std::string& key) const;
    [[nodiscard]] wxString GetWxString(const wxString& key) const;

    /// Sets `out` and returns true when the key holds a value of that type;
    /// otherwise leaves `out` alone and returns false.
    bool Get(const std::string& key, std::string& out) const;
    bool Get(const std::string& key, bool& out) const;
    bool Get(const std::string& key, long long& out) const;

    /// The present value, of any type.
    [[nodiscard]] DomValue Value(const std::string& key) const;

    /// What `strict.owner` says of things that others can change.
    [[nodiscard]] EOwnerRule OwnerRule() const;

    /// The set keys that begin with `prefix`, sorted by byte.
    [[nodiscard]] std::vector<std::string> Keys(
        const std::string& prefix = std::string()) const;

    // Waiting.

    /// The present generation of a key, for the first Wait() on it.
    [[nodiscard]] std::uint64_t Generation(const std::string& key);

    /// Waits until a key is set or removed.
    ///
    /// Returns at once when the key changed since `seen` was taken, so a
    /// change between two waits is never missed. Setting the same value again
    /// is a change, removing an unset key is none.
    ///
    /// \param key      Need not be set. Takes memory for the life of the domain
    ///                 from its first Wait() or Generation() on.
    /// \param timeout  Longest wait; zero and less only look.
    /// \param seen     In: the generation last looked at. Out: the present
    ///                 one, also after a time-out.
    ///
    /// \return true when the key changed; false after the time-out or when the
    ///         calling thread was asked to exit (CRunnable::requestExit).
    ///         While a stop is announced to the calling thread
    ///         (CRunnable::AnnounceStop), false also when the key changed,
    ///         which then shows in `seen`.
    ///
    /// Holds no lock while it waits.
    [[nodiscard]] bool Wait(const std::string& key,
                            std::chrono::milliseconds timeout,
                            std::uint64_t& seen);

    // Services bound to the domain.

    /// The working directory reserved for a plugin: the directory of that
    /// name under `app.path.work`, made with mode 0700 when missing. A name
    /// that is empty, `.`, `..` or holds a `/` or a NUL gives an empty path,
    /// and so does every name while `app.path.work` is unset. Those, and a
    /// directory that cannot be made, are a warning in the log. One of another
    /// user's is refused, with an empty path, when `strict.owner` is set.
    [[nodiscard]] wxString GetPluginWorkdirWx(const wxString& plugin) const;

    /// Installs the searcher for modules in the archives of `app.lua.zippath`
    /// into a Lua state. A state that has the searcher gets no second one; its
    /// searcher reads the paths from this domain from then on. Raises a Lua
    /// error when `package.searchers` is missing. The domain outlives the
    /// state.
    void RegisterLoader(lua_State* L);

    /// Stores an event for the agent to report. When the call returns, the
    /// event is on disk; when the database cannot store it, the whole event is
    /// an error in the log.
    ///
    /// \return the id of the stored event, 0 when it was not stored.
    std::int64_t AgentEventWrite(CAgentEvent& event);

private:
    friend CDomStore& StoreOf(CDom& dom);

    CDom();

    std::unique_ptr<CDomStore> m_store;
};

/// Pushes a domain onto a Lua stack as an object of class "SLB.Dom" that does
/// not own it, or nil for null; first defines the class in that state when it
/// is missing. Raises a Lua error when memory is short.
///
/// Threads: the one that owns the state.
KZA_API void PushDom(lua_State* L, CDom* dom);

} // namespace KzaCore
