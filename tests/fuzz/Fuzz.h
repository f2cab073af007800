// What the fuzz targets share.

#pragma once

#include "window/KestrelFrame.h"

#include <wx/app.h>
#include <wx/init.h>
#include <wx/log.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include <unistd.h>

// Ends the run with a report when something does not hold.
inline void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// Starts the toolkit for a program without windows, and drops what it complains about.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    wxDISABLE_DEBUG_SUPPORT();
    wxApp::SetInstance(new wxAppConsole);
    Require(wxInitialize());
    wxLog::EnableLogging(false);
    return 0;
}

// Cuts the first line off the text and returns it.
inline wxString TakeLine(std::string& text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const wxString line(text.data(), wxConvWhateverWorks, end);
    text.erase(0, end + 1);
    return line;
}
