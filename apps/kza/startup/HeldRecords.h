// SPDX-License-Identifier: Apache-2.0
//
// Holding back log records of the start-up until the log's settings are known.
//
// Threads: the main thread, while there is no other.

#pragma once

#include <wx/log.h>

#include <vector>

/// While the object exists, the framework's records are held back. Its
/// destructor passes them to the target from before, in order and with their
/// own times.
///
/// The configuration contains the limits of the log file. A record that was
/// written before the limits are known could rotate a file that has not reached
/// its real limit.
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
