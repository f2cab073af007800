// The file information: an INI text in the form that wxFileConfig reads. In the section of the
// product it holds the latest version ("Version", dotted decimal) and the URL of that version's
// installer ("Link"); nothing else in it is read. The reader's complaints are logged at verbose
// level only: the user gets one clear box, not the reader's. Main thread only.
//
// The text comes from the network, so everything in it is bounded before it is worked on. No text
// keeps the main thread busy for more than half a second.

#pragma once

#include <wx/fileconf.h>

#include <memory>

class FileInfo
{
public:
    // The longest text that is read, in bytes. The reader's time grows with the square of it.
    static constexpr int SIZE_LIMIT = 256 * 1024;

    // The longest value that is read, in characters, before and after variables are expanded.
    static constexpr size_t VALUE_LIMIT = 4096;

    // Reads the whole text at path; afterwards the file is not needed any more. A text that is
    // missing, unreadable, too long, or has a line with more than 100 '/', is like an empty one.
    // The section is a path from the root, so a '/' in it names a nested section.
    FileInfo(const wxString& path, const wxString& section);

    // Reads a value of the section, with environment variables ("$NAME") expanded. Returns false,
    // and leaves the argument alone, when there is none or when it is too long or has more
    // than 64 variables.
    bool ReadVersion(wxString& version) { return Read("Version", version); }
    bool ReadLink(wxString& link) { return Read("Link", link); }

private:
    bool Read(const wxString& key, wxString& value);

    std::unique_ptr<wxFileConfig> m_text;
    bool m_hasSection = false;
};
