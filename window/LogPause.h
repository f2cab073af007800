// Holds back the boxes of the toolkit's log from Begin() to End(); then they are shown. Otherwise
// one could open over a log box that nobody has answered yet. Main thread only.

#pragma once

#include <wx/log.h>

class LogPause
{
public:
    LogPause() = default;
    ~LogPause() { End(); }

    void Begin()
    {
        if (!m_paused)
            wxLog::Suspend();
        m_paused = true;
    }

    void End()
    {
        if (m_paused)
            wxLog::Resume();
        m_paused = false;
    }

private:
    bool m_paused = false;

    wxDECLARE_NO_COPY_CLASS(LogPause);
};
