// Keeps the toolkit's log from opening boxes between Begin() and End(). What was logged meanwhile
// is shown the next time that the log is flushed. Without the pause, a box of ours could open over
// a log box that the user has not answered yet. Begin() does nothing during a pause, and End() does
// nothing without one. Main thread only.

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
