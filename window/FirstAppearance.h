// Raises and centres a window when it first appears on the screen, which is some moments after
// Show(). Centres it again when the window manager has reported the size of the decorations. Main
// thread only.

#pragma once

#include <wx/toplevel.h>

#include <memory>

class FirstAppearance
{
public:
    // window: not owned; must outlive this object. It must not have been shown yet. Its Create()
    // may be called later.
    explicit FirstAppearance(wxTopLevelWindow* window);

    // If Show() has been called but the window is not on the screen yet: keeps a copy of the event,
    // queues it for the window as soon as it is there, and returns true. Only one event is kept.
    // Otherwise does nothing and returns false. Use it for an event that opens a box, which needs a
    // visible window to stand over.
    bool Postpone(const wxEvent& event);

private:
    void OnShow(wxShowEvent& event);
    void OnSize(wxSizeEvent& event);

    wxTopLevelWindow* const m_window;
    enum
    {
        HIDDEN,
        SHOWN,
        CENTRED // with its decorations
    } m_stage = HIDDEN;
    wxSize m_decorations; // their size when the window was shown
    std::unique_ptr<wxEvent> m_postponed;

    wxDECLARE_NO_COPY_CLASS(FirstAppearance);
};
