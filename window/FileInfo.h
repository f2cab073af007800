// The file information: an INI text in the form that wxFileConfig reads. In the section of the
// product it holds the latest version ("Version", dotted decimal) and the URL of that version's
// installer ("Link"); nothing else in it is looked at. What the reader complains about is told at
// verbose level only: the user gets one clear box, not the reader's. Main thread only.

#pragma once

#include <wx/fileconf.h>

#include <memory>

class FileInfo
{
public:
    // Reads the text at path whole; afterwards the file is not needed any more. One that is
    // missing, unreadable, longer than 1 MiB, or has a line with more than 1000 '/', is like an
    // empty one. The section is a path from the root, so '/' in it names a nested one.
    FileInfo(const wxString& path, const wxString& section);

    // Reads a value of the section; returns false, and leaves it alone, when there is none.
    bool ReadVersion(wxString& version) { return Read("Version", version); }
    bool ReadLink(wxString& link) { return Read("Link", link); }

private:
    bool Read(const wxString& key, wxString& value);

    std::unique_ptr<wxFileConfig> m_text;
    bool m_hasSection = false;
};
