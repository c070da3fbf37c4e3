// SPDX-License-Identifier: Apache-2.0
//
// The table kSettings is the only place with the settings' names. The options
// are those of sqlite3_config(), see https://sqlite.org/c3ref.

#include "kza_core/SqliteDatabase.h"

#include "base/Bytes.h"
#include "events/EventStore.h"
#include "kza_core/Dom.h"

#include <sqlite3.h>
#include <wx/log.h>

#include <algorithm>
#include <iterator>

namespace KzaCore
{

namespace
{

// The call that passes a setting to SQLite. All settings are one integer, but
// of different widths in the call's variable argument list.
enum class EKind
{
    Flag,      // sqlite3_config(option) when the value is not 0
    Int,       // sqlite3_config(option, int)
    UInt,      // sqlite3_config(option, unsigned)
    Int64,     // sqlite3_config(option, sqlite3_int64)
    MmapSize,  // default and limit of SQLITE_CONFIG_MMAP_SIZE at once
    SoftLimit, // sqlite3_soft_heap_limit64()
    HardLimit  // sqlite3_hard_heap_limit64()
};

struct CSetting
{
    const char* name;
    EKind kind;
    int option;
};

constexpr CSetting kSettings[] = {
    {"sqlite.config.singlethread", EKind::Flag, SQLITE_CONFIG_SINGLETHREAD},
    {"sqlite.config.multithread", EKind::Flag, SQLITE_CONFIG_MULTITHREAD},
    {"sqlite.config.serialized", EKind::Flag, SQLITE_CONFIG_SERIALIZED},
    {"sqlite.config.memstatus", EKind::Int, SQLITE_CONFIG_MEMSTATUS},
    {"sqlite.config.small_malloc", EKind::Int, SQLITE_CONFIG_SMALL_MALLOC},
    {"sqlite.config.uri", EKind::Int, SQLITE_CONFIG_URI},
    {"sqlite.config.covering_index_scan", EKind::Int,
     SQLITE_CONFIG_COVERING_INDEX_SCAN},
    {"sqlite.config.mmap_size", EKind::MmapSize, SQLITE_CONFIG_MMAP_SIZE},
    {"sqlite.config.pmasz", EKind::UInt, SQLITE_CONFIG_PMASZ},
    {"sqlite.config.stmtjrnl_spill", EKind::Int, SQLITE_CONFIG_STMTJRNL_SPILL},
    {"sqlite.config.sorterref_size", EKind::Int, SQLITE_CONFIG_SORTERREF_SIZE},
    {"sqlite.config.memdb_maxsize", EKind::Int64, SQLITE_CONFIG_MEMDB_MAXSIZE},
    {"sqlite.config.soft_heap_limit", EKind::SoftLimit, 0},
    {"sqlite.config.hard_heap_limit", EKind::HardLimit, 0},
};

bool IsWithin(long long value, long long low, long long high)
{
    return value >= low && value <= high;
}

// A heap limit initialises the library, after which sqlite3_config() refuses
// every call.
bool NeedsRunningLibrary(const CSetting& setting)
{
    return setting.kind == EKind::SoftLimit || setting.kind == EKind::HardLimit;
}

// The result code of SQLite; SQLITE_RANGE for a value that its type does not
// hold.
int Apply(const CSetting& setting, long long value)
{
    constexpr long long kMaxInt = 0x7fffffff;
    if (NeedsRunningLibrary(setting) && value < 0)
        return SQLITE_RANGE;
    switch (setting.kind)
    {
    case EKind::Flag:
        return value == 0 ? SQLITE_OK : sqlite3_config(setting.option);
    case EKind::Int:
        if (!IsWithin(value, -kMaxInt - 1, kMaxInt))
            return SQLITE_RANGE;
        return sqlite3_config(setting.option, static_cast<int>(value));
    case EKind::UInt:
        if (!IsWithin(value, 0, 2 * kMaxInt + 1))
            return SQLITE_RANGE;
        return sqlite3_config(setting.option, static_cast<unsigned>(value));
    case EKind::Int64:
        return sqlite3_config(setting.option, sqlite3_int64{value});
    case EKind::MmapSize:
        // A negative limit means the limit that is compiled in.
        return sqlite3_config(setting.option, sqlite3_int64{value},
                              sqlite3_int64{-1});
    case EKind::SoftLimit:
        sqlite3_soft_heap_limit64(value);
        return SQLITE_OK;
    case EKind::HardLimit:
        sqlite3_hard_heap_limit64(value);
        return SQLITE_OK;
    }
    return SQLITE_MISUSE;
}

const CSetting* FindSetting(const std::string& name)
{
    const auto* const found =
        std::find_if(std::begin(kSettings), std::end(kSettings),
                     [&name](const CSetting& s) { return name == s.name; });
    return found == std::end(kSettings) ? nullptr : found;
}

void ApplySetting(const CDom& dom, const std::string& key, bool libraryRuns)
{
    const wxString shown = TextOfBytes(key);
    const CSetting* const setting = FindSetting(key);
    if (setting == nullptr)
    {
        if (!libraryRuns)
            wxLogWarning("SQLite setting '%s' is not known", shown);
        return;
    }
    if (NeedsRunningLibrary(*setting) != libraryRuns)
        return;
    long long value = 0;
    if (!dom.Get(key, value))
    {
        wxLogWarning("SQLite setting '%s' is not an integer", shown);
        return;
    }
    const int result = Apply(*setting, value);
    if (result != SQLITE_OK)
        wxLogWarning("SQLite refuses %lld for '%s': %s", value, shown,
                     wxString(sqlite3_errstr(result)));
}

} // namespace

void CSqliteDatabase::InitializeSQLite(CDom& dom)
{
    const auto keys = dom.Keys(DomKey::kSqlitePrefix);
    for (const std::string& key : keys)
        ApplySetting(dom, key, false);
    const int result = sqlite3_initialize();
    if (result != SQLITE_OK)
    {
        wxLogError("SQLite does not start: %s",
                   wxString(sqlite3_errstr(result)));
        return;
    }
    for (const std::string& key : keys)
        ApplySetting(dom, key, true);
}

void CSqliteDatabase::ShutdownSQLite()
{
    CloseEventStore();
    sqlite3_shutdown();
}

} // namespace KzaCore
