// While an object of this class exists, messages that the toolkit logs on the main thread open no
// box. With the option --verbose, the first 20 of them are shown, cut to 300 characters each. Use
// it for complaints that the user can do nothing about, such as a malformed line in a vendor's
// text. A text can cause a complaint for each of its characters, hence the two limits. Main thread
// only; objects must be destroyed in the reverse order of their creation.

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
