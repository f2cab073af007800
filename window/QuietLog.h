// While it lives, keeps what the toolkit logs on the main thread from popping up as a box: the
// messages go on at verbose level, where the option --verbose shows them. For complaints that the
// person in front of the window can do nothing about, such as a malformed line in a vendor's text.

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
        if (m_previous && wxLog::GetVerbose())
            m_previous->LogRecord(wxLOG_Info, msg, info);
    }

private:
    wxLog* const m_previous;

    wxDECLARE_NO_COPY_CLASS(QuietLog);
};
