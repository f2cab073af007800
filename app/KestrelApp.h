// The application object: sets the locale, reads the command line and opens the one window. Main
// thread only.

#pragma once

#include <wx/app.h>
#include <wx/intl.h>

class KestrelApp : public wxApp
{
public:
    // Opens the window and starts the check for an update. If the command line is rejected or asks
    // for help, opens no window, writes the usage to standard error and returns false; the process
    // then ends with status 255.
    bool OnInit() override;
    int OnExit() override;
    void OnInitCmdLine(wxCmdLineParser& parser) override;
    bool OnCmdLineParsed(wxCmdLineParser& parser) override;

    // The values of the three options; empty until the command line has been parsed.
    wxString GetAddress() const { return m_cmdAddress; }
    wxString GetIniSection() const { return m_cmdIniSection; }
    wxString GetVersion() const { return m_cmdVersion; }

private:
    wxLocale m_locale;
    wxString m_cmdAddress;    // URL of the file information
    wxString m_cmdIniSection; // the section to read in it
    wxString m_cmdVersion;    // the installed version

    wxDECLARE_CLASS(KestrelApp);
    wxDECLARE_EVENT_TABLE();
};
