// SPDX-License-Identifier: Apache-2.0
//
// Log records of the start-up that wait for the log's settings.
//
// Threads: the main thread, while there is no other.

#pragma once

#include <wx/log.h>

#include <vector>

/// While it lives, the framework's records are held back; then they go to the
/// target from before, in order and with their own times.
///
/// The configuration says how large the log may grow and how many old files
/// are kept. A record about the configuration that was written before it is
/// known would rotate a log that has not reached its size.
class CHeldRecords : public wxLog
{
public:
    CHeldRecords();
    ~CHeldRecords() override;

    CHeldRecords(const CHeldRecords&) = delete;
    CHeldRecords& operator=(const CHeldRecords&) = delete;

protected:
    void DoLogRecord(wxLogLevel level,
                     const wxString& text,
                     const wxLogRecordInfo& info) override;

private:
    struct CRecord
    {
        wxLogLevel level;
        wxString text;
        wxLogRecordInfo info;
    };

    wxLog* const m_before;
    std::vector<CRecord> m_records;
};
