#include "transport/WebResource.h"

#include <cstdio>

std::string GetWebHeader(CURL* easy, const char* name)
{
    curl_header* header = nullptr;
    const CURLHcode found = curl_easy_header(easy, name, 0, CURLH_HEADER, -1, &header);
    return found == CURLHE_OK ? header->value : std::string();
}

bool HasOneLength(CURL* easy)
{
    const std::string length = GetWebHeader(easy, "Content-Length");
    curl_header* other = nullptr;
    for (size_t i = 0;
         curl_easy_header(easy, "Content-Length", i, CURLH_HEADER, -1, &other) == CURLHE_OK; ++i)
        if (other->value != length)
            return false;
    return length.find(',') == std::string::npos;
}

void WebResource::Learn(CURL* easy)
{
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &m_size);
    m_takesRanges = GetWebHeader(easy, "Accept-Ranges") == "bytes";
    m_coding = GetWebHeader(easy, "Content-Encoding");
    m_entityTag = GetWebHeader(easy, "ETag");
    m_lastModified = GetWebHeader(easy, "Last-Modified");
}

std::string WebResource::GetValidator() const
{
    if (!m_takesRanges)
        return std::string();
    const bool strong = !m_entityTag.empty() && m_entityTag.compare(0, 2, "W/") != 0;
    return strong ? m_entityTag : m_lastModified;
}

bool WebResource::Continues(CURL* easy, curl_off_t received)
{
    long long first = -1, last = -1, total = -1;
    const int found = std::sscanf(GetWebHeader(easy, "Content-Range").c_str(),
                                  "bytes %lld-%lld/%lld", &first, &last, &total);
    if (found < 2 || first != received || last < first || (m_size >= 0 && last >= m_size))
        return false;
    if (found == 3 && (last >= total || (m_size >= 0 && total != m_size)))
        return false;
    curl_off_t length = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length >= 0 && length != last - first + 1)
        return false;

    // A header that did not serve as validator may be left out of such an answer.
    const std::string tag = GetWebHeader(easy, "ETag");
    const std::string modified = GetWebHeader(easy, "Last-Modified");
    const std::string coding = GetWebHeader(easy, "Content-Encoding");
    const bool byTag = GetValidator() == m_entityTag;
    if ((!coding.empty() && coding != m_coding) ||
        (tag != m_entityTag && (byTag || !tag.empty())) ||
        (modified != m_lastModified && (!byTag || !modified.empty())))
        return false;

    m_end = last + 1;
    if (found == 3)
        m_size = total;
    return true;
}
