// While it lives, keeps what the toolkit logs on the main thread from popping up as a box: the
// messages go on at verbose level, where the option --verbose shows the first of them. For
// complaints that the person in front of the window can do nothing about, such as a malformed line
// in a vendor's text. A text can give rise to a complaint for each of its characters, so number and
// length are bounded.

#pragma once

#include <wx/log.h>

class QuietLog : public wxLog
{
public:
    QuietLog() : m_previous(wxLog::GetActiveTarget()) { wxLog::SetActiveTarget(this); }
    ~QuietLog() override { wxLog::SetActiveTarget(m_previous); }

protected:
    void DoLogRecord(wxLogLevel, const wxString& msg, const wxLogRecordInfo& info) override
    {
        if (m_previous && wxLog::GetVerbose() && m_count++ < COUNT_LIMIT)
            m_previous->LogRecord(wxLOG_Info, msg.Left(LENGTH_LIMIT), info);
    }

private:
    static constexpr int COUNT_LIMIT = 20;
    static constexpr size_t LENGTH_LIMIT = 300; // in characters

    wxLog* const m_previous;
    int m_count = 0;

    wxDECLARE_NO_COPY_CLASS(QuietLog);
};
