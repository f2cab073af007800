#include "window/FileInfo.h"

#include "window/QuietLog.h"

#include <wx/filename.h>
#include <wx/textfile.h>

#include <algorithm>

namespace
{

// No honest text nests its sections deeper. wxFileConfig reads nested sections by recursion.
constexpr size_t DEPTH_LIMIT = 100;

// The reader complains of each quotation mark that it does not expect, and repeats the line. It
// also complains of each key that comes twice and of ".." without a section above; then it puts
// together the section's path, level by level. This is how many characters all that may have, and
// what each complaint has besides.
constexpr size_t COMPLAINT_LIMIT = 4 * 1024 * 1024, COMPLAINT_SIZE = 100;

// The reader complains of each malformed line, which takes longer than reading a well-formed one.
constexpr size_t LINE_LIMIT = 32768;

// No honest value has more variables. The time to expand them grows with the square of their
// number.
constexpr int VARIABLE_LIMIT = 64;

bool IsHarmless(const wxString& path)
{
    if (!wxFileName::FileExists(path) || wxFileName::GetSize(path) > FileInfo::SIZE_LIMIT)
        return false;
    wxTextFile text;
    if (!text.Open(path, wxConvAuto()))
        return false;
    if (text.GetLineCount() > LINE_LIMIT)
        return false;
    size_t complaints = 0, longest = 0;
    for (size_t i = 0; i < text.GetLineCount(); ++i)
    {
        const wxString& line = text[i];
        const size_t slashes = line.Freq('/');
        // The reader skips the same characters.
        const auto start =
            std::find_if_not(line.begin(), line.end(), [](wxUniChar c) { return wxIsspace(c); });
        const bool isSection = start != line.end() && *start == '[';
        if (isSection)
            longest = std::max(longest, (slashes + 1) * line.length());
        const size_t marks = line.Freq('"') + (isSection ? slashes : 0);
        complaints += longest + marks * (line.length() + COMPLAINT_SIZE);
        if (slashes > DEPTH_LIMIT || complaints > COMPLAINT_LIMIT)
            return false;
    }
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
    if (!m_hasSection || !m_text->HasEntry(key))
        return false;
    m_text->SetExpandEnvVars(false);
    const wxString written = m_text->Read(key);
    m_text->SetExpandEnvVars(true);
    if (written.length() > VALUE_LIMIT || written.Freq('$') > VARIABLE_LIMIT)
        return false;
    const wxString expanded = m_text->Read(key);
    if (expanded.length() > VALUE_LIMIT)
        return false;
    value = expanded;
    return true;
}
