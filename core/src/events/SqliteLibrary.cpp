// SPDX-License-Identifier: Apache-2.0

#include "events/SqliteLibrary.h"

#include <dlfcn.h>

#include <mutex>

namespace KzaCore
{

namespace
{

// The name that SQLite's third version has had on every system since it came.
constexpr char kFileName[] = "libsqlite3.so.0";

struct SLibrary
{
    std::mutex mutex; // guards the rest until `isLoaded`
    bool isLoaded = false;
    SSqliteCalls calls;
};

// Never destroyed: a process that ends by exit() on one thread may have
// another that stores an event.
SLibrary& Library()
{
    static auto* const s_library = new SLibrary;
    return *s_library;
}

template <class TCall>
bool Find(void* handle, const char* name, TCall*& call)
{
    call = reinterpret_cast<TCall*>(dlsym(handle, name));
    return call != nullptr;
}

bool FindAll(void* handle, SSqliteCalls& calls)
{
    bool hasAll = true;
#define KZA_SQLITE_FIND(name)                                                  \
    hasAll = hasAll && Find(handle, "sqlite3_" #name, calls.name);
    KZA_SQLITE_CALLS(KZA_SQLITE_FIND)
#undef KZA_SQLITE_FIND
    return hasAll;
}

} // namespace

bool LoadSqlite(std::string& reason)
{
    SLibrary& library = Library();
    const std::lock_guard<std::mutex> lock(library.mutex);
    if (library.isLoaded)
        return true;
    // The library stays: what has been started is not unloaded.
    void* const handle = dlopen(kFileName, RTLD_NOW | RTLD_LOCAL);
    library.isLoaded = handle != nullptr && FindAll(handle, library.calls);
    if (library.isLoaded)
        return true;
    const char* const error = dlerror();
    reason = error == nullptr ? kFileName : error;
    return false;
}

bool IsSqliteLoaded()
{
    SLibrary& library = Library();
    const std::lock_guard<std::mutex> lock(library.mutex);
    return library.isLoaded;
}

const SSqliteCalls& Sqlite()
{
    return Library().calls;
}

} // namespace KzaCore
