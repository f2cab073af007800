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

    // Two of them may say two things, and then nothing.
    const auto only = [easy](const char* name)
    {
        curl_header* header = nullptr;
        const CURLHcode found = curl_easy_header(easy, name, 0, CURLH_HEADER, -1, &header);
        return found == CURLHE_OK && header->amount == 1 ? header->value : std::string();
    };
    // A date is strong only if it is older than the answer: the resource may have changed twice
    // within the second in which the answer was made.
    const auto time = [](const std::string& text) { return curl_getdate(text.c_str(), nullptr); };
    const time_t modified = time(m_lastModified);
    const bool strongDate = m_entityTag.empty() && modified != -1 && time(only("Date")) > modified;
    // One tag in quotes: two that were folded into one line have more of them.
    const bool strongTag =
        m_entityTag.compare(0, 1, "\"") == 0 && m_entityTag.find('"', 1) + 1 == m_entityTag.size();
    if (only("Accept-Ranges") == "bytes")
        m_validator = strongTag ? m_entityTag : strongDate ? m_lastModified : std::string();
}

bool WebResource::Continues(CURL* easy, curl_off_t received)
{
    const std::string range = GetWebHeader(easy, "Content-Range");
    long long first = -1, last = -1, total = -1;
    std::sscanf(range.c_str(), "bytes %lld-%lld/%lld", &first, &last, &total);
    // Anything more, such as a second range in the same line, would be a contradiction.
    if (range != "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                     (total < 0 ? "*" : std::to_string(total)))
        return false;
    if (first != received || last < first || (total >= 0 && last >= total) ||
        (m_size >= 0 && (last >= m_size || (total >= 0 && total != m_size))))
        return false;
    curl_off_t size = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);
    if (size >= 0 && size != last - first + 1)
        return false;

    // Such an answer may omit a header that is not the validator.
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
