#include "transport/WebAddress.h"

namespace
{

std::string GetPart(CURLU* url, CURLUPart part, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK)
        return std::string();
    return CurlText(text).get();
}

// Whether credentials given for one URL may be sent to the other: to the same host and port, or
// when the same host asks for TLS.
bool IsSameSite(CURLU* from, CURLU* to)
{
    const auto port = [](CURLU* url) { return GetPart(url, CURLUPART_PORT, CURLU_DEFAULT_PORT); };
    if (!curl_strequal(GetPart(from, CURLUPART_HOST).c_str(), GetPart(to, CURLUPART_HOST).c_str()))
        return false;
    if (GetPart(from, CURLUPART_SCHEME) == GetPart(to, CURLUPART_SCHEME))
        return port(from) == port(to);
    return port(from) == "80" && port(to) == "443";
}

} // namespace

const char* WebAddress::MoveTo(const std::string& address)
{
    // libcurl makes a '+' of a space in a query, which not every server takes for one.
    std::string text;
    for (const char character : address)
        text += character == ' ' ? std::string("%20") : std::string(1, character);
    CurlUrl url(m_url ? curl_url_dup(m_url.get()) : curl_url());
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_URLENCODE) != CURLUE_OK)
        return "not a valid address";
    const std::string scheme = GetPart(url.get(), CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https")
        return "redirected to a scheme other than http and https";
    if (m_url && scheme == "http" && GetPart(m_url.get(), CURLUPART_SCHEME) == "https")
        return "redirected from https back to http";

    const std::string user = GetPart(url.get(), CURLUPART_USER, CURLU_URLDECODE);
    const std::string password = GetPart(url.get(), CURLUPART_PASSWORD, CURLU_URLDECODE);
    if (!user.empty() || !m_url || !IsSameSite(m_url.get(), url.get()))
    {
        m_user = user;
        m_password = password;
    }
    curl_url_set(url.get(), CURLUPART_USER, nullptr, 0);
    curl_url_set(url.get(), CURLUPART_PASSWORD, nullptr, 0);
    m_url = std::move(url);
    return nullptr;
}

bool WebAddress::ApplyTo(CURL* easy) const
{
    const bool given = !m_user.empty() || !m_password.empty();
    return curl_easy_setopt(easy, CURLOPT_CURLU, m_url.get()) == CURLE_OK &&
           curl_easy_setopt(easy, CURLOPT_USERNAME, given ? m_user.c_str() : nullptr) == CURLE_OK &&
           curl_easy_setopt(easy, CURLOPT_PASSWORD, given ? m_password.c_str() : nullptr) ==
               CURLE_OK;
}

std::string WebAddress::GetText() const
{
    return m_url ? GetPart(m_url.get(), CURLUPART_URL) : std::string();
}
