// SPDX-License-Identifier: Apache-2.0

#include "events/DefensiveDatabase.h"

#include <sqlite3.h>

namespace KzaCore
{

int MakeDefensive(sqlite3* db)
{
    constexpr int kSettings[][2] = {{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                    {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                    {SQLITE_DBCONFIG_ENABLE_VIEW, 0}};
    for (const auto& [option, value] : kSettings)
    {
        const int code = sqlite3_db_config(db, option, value, nullptr);
        if (code != SQLITE_OK)
            return code;
    }
    return SQLITE_OK;
}

} // namespace KzaCore
