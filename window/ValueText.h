// The value in one of the window's rows. Its text may change thousands of times a second, and may
// be longer than any display.
//
// A new text can be read back at once. GTK, and through it a screen reader, gets the latest text
// at most 30 times a second, and always before a box opens. The window grows with the text as far
// as its display has room. A longer text is shortened in the middle; the tooltip then has the
// text. Main thread only.

#pragma once

#include <wx/modalhook.h>
#include <wx/stattext.h>
#include <wx/timer.h>

class ValueText : public wxStaticText, private wxModalDialogHook
{
public:
    // text: the initial text.
    // label: names the value for a screen reader; not owned; must live as long as this object.
    ValueText(wxWindow* parent, wxWindowID id, const wxString& text, const wxStaticText* label);

    void SetLabel(const wxString& text) override;

private:
    int Enter(wxDialog* dialog) override;
    void OnTimer(wxTimerEvent& event);
    void HandOver();
    void FitWindow(int width);
    void ShowWhole(const wxString& text);

    wxTimer m_timer;        // GTK gets no new text while it runs
    bool m_waiting = false; // whether GTK does not have the latest text yet
};
