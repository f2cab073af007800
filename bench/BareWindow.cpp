// The simplest window that the toolkit can show, to compare Kestrel's with. Writes a line when it
// is on the screen. With an argument it has a text that changes 60 times a second.

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/stattext.h>
#include <wx/timer.h>

#include <cstdio>

class BareApp : public wxApp
{
public:
    bool OnInit() override
    {
        wxFrame* const frame = new wxFrame(nullptr, wxID_ANY, "Bare");
        frame->Bind(wxEVT_SHOW, [](wxShowEvent&) { std::fputs("shown\n", stderr); });
        if (argc > 1)
        {
            wxStaticText* const text = new wxStaticText(frame, wxID_ANY, wxString());
            text->ToggleWindowStyle(wxST_NO_AUTORESIZE);
            m_timer.Bind(wxEVT_TIMER, [=](wxTimerEvent&)
                         { text->SetLabelText(wxString::Format("%d (1000 kBps)", ++m_count)); });
            m_timer.Start(1000 / 60);
        }
        return frame->Show();
    }

private:
    wxTimer m_timer;
    int m_count = 0;
};

wxIMPLEMENT_APP(BareApp);
