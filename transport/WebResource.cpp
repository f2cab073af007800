#include "transport/WebResource.h"

#include <cstdio>

std::string GetWebHeader(CURL* easy, const char* name)
{
    curl_header* header = nullptr;
    const CURLHcode found = curl_easy_header(easy, name, 0, CURLH_HEADER, -1, &header);
    return found == CURLHE_OK ? header->value : std::string();
}

bool IsContradiction(CURL* easy)
{
    for (const char* name : {"Content-Length", "Content-Range", "Content-Encoding", "ETag",
                             "Last-Modified", "Location"})
    {
        const std::string first = GetWebHeader(easy, name);
        curl_header* other = nullptr;
        for (size_t i = 1; curl_easy_header(easy, name, i, CURLH_HEADER, -1, &other) == CURLHE_OK;
             ++i)
            if (other->value != first)
                return true;
    }
    return GetWebHeader(easy, "Content-Length").find(',') != std::string::npos;
}

void WebResource::Learn(CURL* easy)
{
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &m_size);
    m_coding = GetWebHeader(easy, "Content-Encoding");
    m_entityTag = GetWebHeader(easy, "ETag");
    m_lastModified = GetWebHeader(easy, "Last-Modified");

    // The resource may have changed twice within the second in which the answer was made.
    const auto time = [](const std::string& text) { return curl_getdate(text.c_str(), nullptr); };
    const time_t modified = time(m_lastModified);
    const bool strongDate =
        m_entityTag.empty() && modified != -1 && time(GetWebHeader(easy, "Date")) > modified;
    if (GetWebHeader(easy, "Accept-Ranges") == "bytes")
        m_validator = m_entityTag.compare(0, 1, "\"") == 0 ? m_entityTag
                      : strongDate                         ? m_lastModified
                                                           : std::string();
}

bool WebResource::Continues(CURL* easy, curl_off_t received)
{
    const std::string range = GetWebHeader(easy, "Content-Range");
    long long first = -1, last = -1, total = -1;
    int length = 0;
    if (std::sscanf(range.c_str(), "bytes %lld-%lld/%n", &first, &last, &length) != 2 || !length ||
        (range.substr(length) != "*" && std::sscanf(range.c_str() + length, "%lld", &total) != 1))
        return false;
    if (first != received || last < first || (total >= 0 && last >= total) ||
        (m_size >= 0 && (last >= m_size || (total >= 0 && total != m_size))))
        return false;
    curl_off_t size = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);
    if (size >= 0 && size != last - first + 1)
        return false;

    // A header that did not serve as validator may be left out of such an answer.
    const std::string tag = GetWebHeader(easy, "ETag");
    const std::string modified = GetWebHeader(easy, "Last-Modified");
    const bool byTag = m_validator == m_entityTag;
    if (GetWebHeader(easy, "Content-Encoding") != m_coding ||
        (tag != m_entityTag && (byTag || !tag.empty())) ||
        (modified != m_lastModified && (!byTag || !modified.empty())))
        return false;

    m_end = last + 1;
    if (total >= 0)
        m_size = total;
    return true;
}
