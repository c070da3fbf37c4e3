// SPDX-License-Identifier: Apache-2.0

#include "log/EarlyRecords.h"

namespace KzaCore
{

void CEarlyRecords::Add(std::string_view line, EConsole console)
{
    if (m_records.size() == kMostRecords || m_bytes + line.size() > kMostBytes)
    {
        ++m_refused;
        return;
    }
    m_records.push_back({std::string(line), console});
    m_bytes += line.size();
}

} // namespace KzaCore
