// The least that the toolkit needs for a window: what Kestrel's start is compared with.

#include <wx/app.h>
#include <wx/frame.h>

class BareApp : public wxApp
{
public:
    bool OnInit() override
    {
        if (!wxApp::OnInit())
            return false;
        return (new wxFrame(nullptr, wxID_ANY, "Bare"))->Show();
    }
};

wxIMPLEMENT_APP(BareApp);
