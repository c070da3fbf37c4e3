// SPDX-License-Identifier: Apache-2.0

#include "events/EventRow.h"

#include <sqlite3.h>

namespace KzaCore
{

CStoredEvent EventOfRow(sqlite3_stmt* row)
{
    CStoredEvent event;
    event.id = sqlite3_column_int64(row, 0);
    event.number = sqlite3_column_int64(row, 1);
    event.severity = sqlite3_column_int64(row, 2);
    event.time = sqlite3_column_int64(row, 3);
    event.timeMs = sqlite3_column_int64(row, 4);
    const unsigned char* const text = sqlite3_column_text(row, 5);
    if (text != nullptr)
    {
        event.text.assign(
            reinterpret_cast<const char*>(text),
            static_cast<std::size_t>(sqlite3_column_bytes(row, 5)));
    }
    return event;
}

} // namespace KzaCore
