// The file information: an INI text in the form that wxFileConfig reads. The product's section has
// the latest version ("Version", dotted decimal) and the URL of its installer ("Link"); nothing
// else is read. No call opens a box; only --verbose shows the complaints of wxFileConfig (see
// QuietLog). Main thread only.
//
// The text comes from the network, so every size in it is limited. No text keeps the main thread
// busy for more than half a second.

#pragma once

#include <wx/fileconf.h>

#include <memory>

class FileInfo
{
public:
    // The longest text that is read, in bytes. wxFileConfig's time grows with the square of it.
    static constexpr int SIZE_LIMIT = 256 * 1024;

    // The longest value, in characters, both before and after variables are expanded.
    static constexpr size_t VALUE_LIMIT = 4096;

    // Reads the whole text at path; the file is not needed afterwards. A text counts as empty if it
    // is missing, unreadable or too long, if it has more than 32768 lines or a line with more than
    // 100 '/', or if its '"' or the names of its sections could make the reader complain for too
    // long. A '/' in the section names a nested section, as in a path.
    FileInfo(const wxString& path, const wxString& section);

    // Reads a value of the section, and expands the environment variables ("$NAME") in it. Returns
    // false, and leaves the argument as it is, if the section or the value is missing, or if the
    // value is too long or has more than 64 '$'.
    bool ReadVersion(wxString& version) { return Read("Version", version); }
    bool ReadLink(wxString& link) { return Read("Link", link); }

private:
    bool Read(const wxString& key, wxString& value);

    std::unique_ptr<wxFileConfig> m_text;
    bool m_hasSection = false;
};
