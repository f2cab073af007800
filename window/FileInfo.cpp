#include "window/FileInfo.h"

#include "window/QuietLog.h"

FileInfo::FileInfo(const wxString& path, const wxString& section)
{
    const QuietLog quiet;
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
