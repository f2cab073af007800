#include "window/FileInfo.h"

#include "window/QuietLog.h"

#include <wx/filename.h>
#include <wx/textfile.h>

namespace
{

// No honest text is longer, in bytes, nor has sections within sections so deep. The time the reader
// takes grows with the square of the number of sections, and it goes down into nested ones by
// recursion.
constexpr int SIZE_LIMIT = 1024 * 1024;
constexpr int DEPTH_LIMIT = 1000;

bool IsHarmless(const wxString& path)
{
    if (!wxFileName::FileExists(path) || wxFileName::GetSize(path) > SIZE_LIMIT)
        return false;
    wxTextFile text;
    if (!text.Open(path, wxConvAuto()))
        return false;
    for (size_t line = 0; line < text.GetLineCount(); ++line)
        if (text[line].Freq('/') > DEPTH_LIMIT)
            return false;
    return true;
}

} // namespace

FileInfo::FileInfo(const wxString& path, const wxString& section)
{
    const QuietLog quiet;
    if (!IsHarmless(path))
        return;
    m_text.reset(new wxFileConfig(wxEmptyString, wxEmptyString, path, wxEmptyString,
                                  wxCONFIG_USE_LOCAL_FILE));
    m_hasSection = m_text->HasGroup(section);
    if (m_hasSection)
        m_text->SetPath(section);
}

bool FileInfo::Read(const wxString& key, wxString& value)
{
    const QuietLog quiet;
    return m_hasSection && m_text->HasEntry(key) && m_text->Read(key, &value);
}
