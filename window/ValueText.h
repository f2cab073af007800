// The value of one of the window's rows, whose text may change thousands of times a second and may
// be longer than any display.
//
// A text that is set can be read back at once. GTK, and through it a screen reader, is handed the
// latest one at most 30 times a second, and always before a box opens. The window grows with
// the text as far as its display has room for it. What is longer is shortened in the middle, with
// the whole as tooltip. Main thread only.

#pragma once

#include <wx/modalhook.h>
#include <wx/stattext.h>
#include <wx/timer.h>

class ValueText : public wxStaticText, private wxModalDialogHook
{
public:
    // label: names the value for a screen reader; as long-lived as this.
    ValueText(wxWindow* parent, wxWindowID id, const wxString& text, const wxStaticText* label);

    void SetLabel(const wxString& text) override;

private:
    int Enter(wxDialog* dialog) override;
    void OnTimer(wxTimerEvent& event);
    void HandOver();
    void FitWindow(int width);
    void ShowWhole(const wxString& text);

    wxTimer m_timer;        // runs while GTK is not to be bothered again
    bool m_waiting = false; // whether GTK lacks the latest text
};
