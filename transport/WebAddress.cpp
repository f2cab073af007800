#include "transport/WebAddress.h"

#include <wx/string.h>

namespace
{

std::string GetPart(const CurlUrl& url, CURLUPart part)
{
    char* text = nullptr;
    const unsigned flags = part == CURLUPART_PORT ? CURLU_DEFAULT_PORT : 0;
    const CURLUcode found = curl_url_get(url.get(), part, &text, flags);
    return found == CURLUE_OK ? CurlText(text).get() : std::string();
}

CurlUrl Parse(const std::string& text)
{
    // libcurl would replace a space in a query by '+', which not every server reads as a space.
    wxString encoded = wxString::From8BitData(text.c_str());
    encoded.Replace(" ", "%20");
    CurlUrl url(curl_url());
    if (curl_url_set(url.get(), CURLUPART_URL, encoded.To8BitData(), CURLU_URLENCODE) != CURLUE_OK)
        url.reset();
    return url;
}

// Returns whether credentials for one URL may be sent to the other.
bool IsSameSite(const CurlUrl& from, const CurlUrl& to)
{
    const auto describe = [](const CurlUrl& url)
    { return GetPart(url, CURLUPART_SCHEME) + ":" + GetPart(url, CURLUPART_PORT); };
    const bool upgraded = describe(from) == "http:80" && describe(to) == "https:443";
    return (upgraded || describe(from) == describe(to)) &&
           curl_strequal(GetPart(from, CURLUPART_HOST).c_str(),
                         GetPart(to, CURLUPART_HOST).c_str());
}

} // namespace

bool WebAddress::Set(const std::string& url)
{
    m_given = Parse(url);
    m_url = Parse(GetPart(m_given, CURLUPART_URL));
    // For these, libcurl would return a list of files.
    const wxString path = GetPart(m_url, CURLUPART_PATH);
    return m_url &&
           !(GetScheme() == "ftp" && (path.EndsWith("/") || path.Lower().Contains(";type=d")));
}

bool WebAddress::MoveTo(const char* url)
{
    CurlUrl moved = Parse(url);
    if (GetPart(moved, CURLUPART_USER).empty() && IsSameSite(m_given, moved))
        for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD})
            if (const std::string value = GetPart(m_given, part); !value.empty())
                curl_url_set(moved.get(), part, value.c_str(), 0);
    if (!moved)
        return false;
    m_url = std::move(moved);
    return true;
}

std::string WebAddress::GetUrl() const
{
    return GetPart(m_url, CURLUPART_URL);
}

std::string WebAddress::GetText() const
{
    const CurlUrl url = Parse(GetUrl());
    for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD})
        curl_url_set(url.get(), part, nullptr, 0);
    return GetPart(url, CURLUPART_URL);
}
