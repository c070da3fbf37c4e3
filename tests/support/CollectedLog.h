// SPDX-License-Identifier: Apache-2.0
//
// What the main thread logs during a test.

#pragma once

#include <wx/log.h>

#include <vector>

namespace TestSupport
{

/// Takes the place of the active log target while it lives.
class CCollectedLog : public wxLog
{
public:
    CCollectedLog() : m_before(wxLog::SetActiveTarget(this)) {}
    ~CCollectedLog() override { wxLog::SetActiveTarget(m_before); }

    CCollectedLog(const CCollectedLog&) = delete;
    CCollectedLog& operator=(const CCollectedLog&) = delete;

    std::vector<wxString> m_texts;
    std::vector<wxLogLevel> m_levels; ///< of the texts

protected:
    void DoLogRecord(wxLogLevel level,
                     const wxString& text,
                     const wxLogRecordInfo& /*info*/) override
    {
        m_texts.push_back(text);
        m_levels.push_back(level);
    }

private:
    wxLog* m_before;
};

} // namespace TestSupport
