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

// The toolkit for a program without windows; what it complains about is dropped.
class ToolkitWithoutDisplay
{
public:
    ToolkitWithoutDisplay()
    {
        wxDISABLE_DEBUG_SUPPORT();
        wxApp::SetInstance(new wxAppConsole);
        Require(wxInitialize());
        wxLog::EnableLogging(false);
    }
};

// Cuts the first line off the text and returns it.
inline wxString TakeLine(std::string& text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    const wxString utf8 = wxString::FromUTF8(line);
    return utf8.empty() ? wxString::From8BitData(line.data(), line.size()) : utf8;
}
