// SPDX-License-Identifier: Apache-2.0

#include "startup/HeldRecords.h"

CHeldRecords::CHeldRecords() : m_before(wxLog::SetActiveTarget(this))
{
}

CHeldRecords::~CHeldRecords()
{
    wxLog::SetActiveTarget(m_before);
    for (const CRecord& record : m_records)
        wxLog::OnLog(record.level, record.text, record.info);
}

void CHeldRecords::DoLogRecord(wxLogLevel level,
                               const wxString& text,
                               const wxLogRecordInfo& info)
{
    m_records.push_back({level, text, info});
}
