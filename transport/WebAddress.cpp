#include "transport/WebAddress.h"

namespace
{

std::string GetPart(const CurlUrl& url, CURLUPart part, unsigned flags = 0)
{
    char* text = nullptr;
    if (!url || curl_url_get(url.get(), part, &text, flags) != CURLUE_OK)
        return std::string();
    return CurlText(text).get();
}

CurlUrl Parse(const std::string& text, unsigned flags)
{
    CurlUrl url(curl_url());
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK)
        url.reset();
    return url;
}

// Whether credentials given for one URL may be sent to the other.
bool IsSameSite(const CurlUrl& from, const CurlUrl& to)
{
    const auto port = [](const CurlUrl& url)
    { return GetPart(url, CURLUPART_PORT, CURLU_DEFAULT_PORT); };
    if (!curl_strequal(GetPart(from, CURLUPART_HOST).c_str(), GetPart(to, CURLUPART_HOST).c_str()))
        return false;
    if (GetPart(from, CURLUPART_SCHEME) == GetPart(to, CURLUPART_SCHEME))
        return port(from) == port(to);
    return port(from) == "80" && port(to) == "443";
}

} // namespace

bool WebAddress::Set(const std::string& url)
{
    // libcurl makes a '+' of a space in a query, which not every server takes for one.
    std::string text;
    for (const char character : url)
        text += character == ' ' ? std::string("%20") : std::string(1, character);
    m_given = Parse(text, CURLU_URLENCODE);
    m_url.reset(m_given ? curl_url_dup(m_given.get()) : nullptr);
    return m_url != nullptr;
}

void WebAddress::MoveTo(const char* url)
{
    CurlUrl moved = Parse(url, 0);
    if (!moved)
        return;
    if (GetPart(moved, CURLUPART_USER).empty() && IsSameSite(m_given, moved))
        for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD})
            if (const std::string value = GetPart(m_given, part); !value.empty())
                curl_url_set(moved.get(), part, value.c_str(), 0);
    m_url = std::move(moved);
}

std::string WebAddress::GetUrl() const
{
    return GetPart(m_url, CURLUPART_URL);
}

std::string WebAddress::GetText() const
{
    const CurlUrl url(m_url ? curl_url_dup(m_url.get()) : nullptr);
    for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD})
        curl_url_set(url.get(), part, nullptr, 0);
    return GetPart(url, CURLUPART_URL);
}

bool WebAddress::IsFtp() const
{
    return GetPart(m_url, CURLUPART_SCHEME) == "ftp";
}
