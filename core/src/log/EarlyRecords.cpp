// SPDX-License-Identifier: Apache-2.0

#include "log/EarlyRecords.h"

namespace KzaCore
{

void CEarlyRecords::Add(std::string_view line, const CRecordKind& kind)
{
    if (m_records.size() == kMostRecords || m_bytes + line.size() > kMostBytes)
    {
        ++m_refused;
        return;
    }
    m_records.push_back({std::string(line), kind});
    m_bytes += line.size();
}

} // namespace KzaCore
