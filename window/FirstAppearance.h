// A window's first appearance on the screen, which the toolkit brings about some moments after
// Show(): in front, and centred with its decorations once the window manager has told their size.
// Main thread only.

#pragma once

#include <wx/toplevel.h>

#include <memory>

class FirstAppearance
{
public:
    // window: not owned; may be created later, and must not be shown before.
    explicit FirstAppearance(wxTopLevelWindow* window);

    // Keeps a copy of the event, to be queued for the window again when it is on the screen, if it
    // was shown and is not there yet; returns whether it did. For what opens a box, which would
    // find no window to stand over.
    bool Postpone(const wxEvent& event);

private:
    void OnShow(wxShowEvent& event);
    void OnSize(wxSizeEvent& event);

    wxTopLevelWindow* const m_window;
    enum
    {
        HIDDEN,
        SHOWN,
        CENTRED // with decorations
    } m_stage = HIDDEN;
    wxSize m_decorations; // when it was shown
    std::unique_ptr<wxEvent> m_postponed;

    wxDECLARE_NO_COPY_CLASS(FirstAppearance);
};
