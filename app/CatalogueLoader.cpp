#include "app/CatalogueLoader.h"

#include <wx/file.h>
#include <wx/filename.h>
#include <wx/stdpaths.h>
#include <wx/utils.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>

namespace
{

// The toolkit reads and uses the rule for plural forms by functions that call themselves at each of
// its operators. No language needs so many.
constexpr std::ptrdiff_t OPERATOR_LIMIT = 100;

// Returns the conversions of printf() in a text, such as "%s%s" of "%s of %s".
std::string GetConversions(const char* text)
{
    std::string conversions;
    while ((text = strchr(text, '%')))
    {
        const size_t length = 1 + strspn(text + 1, "#+-. 0123456789*'$");
        if (isalpha(static_cast<unsigned char>(text[length])))
            conversions.append(text, length + 1);
        text += text[length] == '%' ? length + 1 : length;
    }
    return conversions;
}

// Returns whether all tables and texts of a catalogue in the GNU MO format are inside it, and
// whether its translations fit the originals. Its header has seven numbers: a magic number, which
// shows the byte order; the revision; the number of texts; the places of the tables of originals
// and of translations; two more are not used. A table has the length and place of each text. A NUL
// follows each text.
bool IsIntact(const wxCharBuffer& catalogue)
{
    constexpr uint32_t MAGIC = 0x950412DE, MAGIC_SWAPPED = 0xDE120495;
    constexpr uint64_t HEADER_SIZE = 28, ENTRY_SIZE = 8;

    const char* const data = catalogue.data();
    const uint64_t size = catalogue.length();
    if (size < HEADER_SIZE)
        return false;
    bool swapped = false;
    const auto number = [&](uint64_t place) -> uint64_t
    {
        uint32_t value = 0;
        memcpy(&value, data + place, sizeof(value));
        return swapped ? wxUINT32_SWAP_ALWAYS(value) : value;
    };
    swapped = number(0) == MAGIC_SWAPPED;
    if (number(0) != MAGIC)
        return false;

    const uint64_t count = number(8);
    if (count == 0) // the toolkit always reads the first text, which names the encoding
        return false;
    for (const uint64_t table : {number(12), number(16)})
    {
        if (table + count * ENTRY_SIZE > size)
            return false;
        for (uint64_t entry = table; entry < table + count * ENTRY_SIZE; entry += ENTRY_SIZE)
        {
            const uint64_t end = number(entry) + number(entry + 4);
            if (end >= size || data[end] != '\0')
                return false;
        }
    }
    for (uint64_t entry = 0; entry < count * ENTRY_SIZE; entry += ENTRY_SIZE)
    {
        const char* const original = data + number(number(12) + entry + 4);
        const char* const translation = data + number(number(16) + entry + 4);
        // The translation of the empty text is the catalogue's header.
        const auto isOperator = [](char c) { return c != '\0' && strchr("(?|&=<>!%*/+-", c); };
        const char* const type = strstr(translation, "Content-Type: text/plain; charset=");
        const char* const utf8 = strstr(translation, "Content-Type: text/plain; charset=UTF-8\n");
        if (*original == '\0' && (!utf8 || utf8 != type ||
                                  std::count_if(translation, translation + strlen(translation),
                                                isOperator) > OPERATOR_LIMIT))
            return false;
        if (*original != '\0' && GetConversions(translation) != GetConversions(original))
            return false;
    }
    return true;
}

} // namespace

CatalogueLoader::CatalogueLoader(const wxString& programPath)
{
    const wxString executable = wxStandardPaths::Get().GetExecutablePath();
    for (const wxString& program : {programPath, executable})
    {
        if (program.empty())
            continue;
        m_folders.push_back(wxFileName(program).GetPathWithSep() + "locale");
        AddCatalogLookupPathPrefix(m_folders.back());
    }
    for (const wxString& prefix : {wxStandardPaths::Get().GetInstallPrefix(), wxGetInstallPrefix()})
        m_folders.push_back(prefix + "/share/locale");
}

wxMsgCatalog* CatalogueLoader::LoadCatalog(const wxString& domain, const wxString& lang)
{
    for (const wxString& folder : m_folders)
        for (const char* const layout : {"/LC_MESSAGES/", "/"})
        {
            const wxString path = folder + "/" + lang + layout + domain + ".mo";
            wxFile file;
            if (!wxFileName::FileExists(path) || !file.Open(path))
                continue;
            wxCharBuffer data(static_cast<size_t>(file.Length()));
            const ssize_t count = file.Read(data.data(), data.length());
            if (count == file.Length() && IsIntact(data))
                return wxMsgCatalog::CreateFromData(data, domain);
            m_damaged.push_back(path);
        }
    return nullptr;
}
