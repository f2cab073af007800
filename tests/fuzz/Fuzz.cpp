// Feeds random bytes to the code that reads texts from the network. Each target calls another function, TRY.

#include "window/FileInfo.h"
#include "window/KestrelFrame.h"

#include <wx/init.h>
#include <wx/wx.h>

#include <cstring>
#include <fstream>

#include <unistd.h>

// Ends the run with a report if a rule does not hold.
void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// Cuts the first line off the text and returns it.
wxString TakeLine(std::string& text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const wxString line(text.data(), wxConvWhateverWorks, end);
    text.erase(0, end + 1);
    return line;
}

// Takes the first line as a section, the second as the installed version, and the rest as the file information.
void TryFileInfo(std::string text)
{
    static const std::string path = "/dev/shm/kestrel-fuzz-" + std::to_string(getpid());
    const wxString section = TakeLine(text), installed = TakeLine(text);
    std::ofstream(path, std::ios::binary) << text;
    FileInfo fileInfo(path, section);
    unlink(path.c_str());

    wxString version, link;
    Require(fileInfo.ReadVersion(version) || version.empty());
    fileInfo.ReadLink(link);
    Require(version.length() <= FileInfo::VALUE_LIMIT && link.length() <= FileInfo::VALUE_LIMIT);
    Require(!KestrelFrame::IsNewer(version, version));
    Require(!(KestrelFrame::IsNewer(version, installed) && KestrelFrame::IsNewer(installed, version)));
}

// Takes the first line as a URL, and the first bytes as a size.
void TryTexts(std::string text)
{
    wxLongLong_t bytes = 0;
    std::memcpy(&bytes, text.data(), std::min(text.size(), sizeof(bytes)));
    Require(KestrelFrame::GetFileNameFromURL(TakeLine(text)).Find('/') == wxNOT_FOUND);

    const wxString shown = KestrelFrame::FormatFileSize(bytes);
    double number = -1;
    Require(shown.EndsWith("B") && shown.BeforeFirst(' ').ToCDouble(&number));
    Require(bytes < 0 || (number >= 0 && (number <= 1024 || shown.EndsWith("GB"))));
}

// Starts the toolkit without windows and without its log.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    wxDISABLE_DEBUG_SUPPORT();
    wxApp::SetInstance(new wxAppConsole);
    Require(wxInitialize());
    wxLog::EnableLogging(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    TRY(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
