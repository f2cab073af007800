// Finds and loads the translations. The toolkit's own loader trusts the numbers in a catalogue, so
// that one which was cut short crashes the program; here it is left out. Main thread only.

#pragma once

#include <wx/translation.h>

#include <vector>

class CatalogueLoader : public wxFileTranslationsLoader
{
public:
    // Adds the folders in which catalogues are searched for, as LANG/LC_MESSAGES/DOMAIN.mo or
    // LANG/DOMAIN.mo, in this order: "locale" beside programPath, "locale" beside the executable
    // itself, then "share/locale" where the program and the toolkit are installed.
    explicit CatalogueLoader(const wxString& programPath);

    // Returns the first catalogue that is not damaged, owned by the caller; null when there is
    // none.
    wxMsgCatalog* LoadCatalog(const wxString& domain, const wxString& lang) override;

    // Returns the paths of the damaged catalogues that were met.
    const std::vector<wxString>& GetDamaged() const { return m_damaged; }

private:
    std::vector<wxString> m_folders;
    std::vector<wxString> m_damaged;
};
