// Finds and loads the translations. The toolkit's own loader trusts the contents of a catalogue, so
// a damaged catalogue would crash the program; this loader skips it. Main thread only.

#pragma once

#include <wx/translation.h>

#include <vector>

class CatalogueLoader : public wxFileTranslationsLoader
{
public:
    // Sets the folders to search, in this order: "locale" beside programPath, the path that started
    // the program, unless it is empty; "locale" beside the executable itself; "share/locale" of the
    // prefixes in which the program and the toolkit are installed. Catalogues in them are
    // LANG/LC_MESSAGES/DOMAIN.mo or LANG/DOMAIN.mo.
    explicit CatalogueLoader(const wxString& programPath);

    // Returns the first catalogue that is not damaged, owned by the caller, or null if there is
    // none.
    wxMsgCatalog* LoadCatalog(const wxString& domain, const wxString& lang) override;

    // Returns the paths of the damaged catalogues that LoadCatalog() has skipped.
    const std::vector<wxString>& GetDamaged() const { return m_damaged; }

private:
    std::vector<wxString> m_folders;
    std::vector<wxString> m_damaged;
};
