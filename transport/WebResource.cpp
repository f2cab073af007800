#include "transport/WebResource.h"

#include <cstdio>

std::string GetWebHeader(CURL* easy, const char* name, const std::string& contradiction)
{
    std::string value;
    curl_header* header = nullptr;
    for (size_t i = 0; curl_easy_header(easy, name, i, CURLH_HEADER, -1, &header) == CURLHE_OK; ++i)
    {
        // Looking up each of many would take long.
        if (header->amount > 9 || (i > 0 && header->value != value))
            return contradiction;
        value = header->value;
    }
    return value;
}

// Returns whether the last answer contradicts itself. Of several different values libcurl would use
// the last one, and it would ignore a length that is too large, or beside some transfer codings.
static bool IsContradiction(CURL* easy)
{
    // No header has this value.
    for (const char* name : {"Content-Length", "Content-Range", "Content-Encoding", "ETag",
                             "Last-Modified", "Location", "Transfer-Encoding"})
        if (GetWebHeader(easy, name, "\n") == "\n")
            return true;
    const std::string length = GetWebHeader(easy, "Content-Length");
    const std::string coding = GetWebHeader(easy, "Transfer-Encoding");
    const bool ignored =
        !length.empty() && GetWebInfo<curl_off_t>(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T) < 0;
    return length.find_first_not_of("0123456789") != std::string::npos ||
           (!curl_strequal(coding.c_str(), "chunked") && (ignored || !coding.empty()));
}

WebResource::Verdict WebResource::Judge(CURL* easy, curl_off_t received)
{
    const long status = GetWebInfo<long>(easy, CURLINFO_RESPONSE_CODE);
    const curl_off_t size = GetWebInfo<curl_off_t>(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    // An ftp server replies with 125 or 150 before the file and with 226 or 250 after it.
    const bool whole = (status / 100 == 2 && status != 204 && status != 205 && status != 206) ||
                       status == 125 || status == 150;
    if (IsContradiction(easy))
        return Verdict::Refuse;
    if (m_known && (status == 408 || status == 429 || status / 100 == 5))
        return Verdict::TryAgain;
    if (!m_known && whole)
    {
        Learn(easy);
        return Verdict::Accept;
    }
    if (!IsResumable())
        return whole && size == m_size ? Verdict::Accept : Verdict::Refuse;
    const std::string tag = GetWebHeader(easy, "ETag");
    if (status == 416 && (m_size < 0 || m_size == received) &&
        (tag.empty() || tag == m_entityTag) &&
        GetWebHeader(easy, "Content-Range") == "bytes */" + std::to_string(received))
        return Verdict::Complete;
    return status == 206 && Continues(easy, received) ? Verdict::Accept : Verdict::Refuse;
}

// Stores what the first answer says about the resource.
void WebResource::Learn(CURL* easy)
{
    m_known = true;
    m_size = GetWebInfo<curl_off_t>(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    m_coding = GetWebHeader(easy, "Content-Encoding");
    m_entityTag = GetWebHeader(easy, "ETag");
    m_lastModified = GetWebHeader(easy, "Last-Modified");

    // A date is strong only if it is older than the answer: the resource may have changed twice
    // within the second in which the answer was made.
    const auto time = [](const std::string& text) { return curl_getdate(text.c_str(), nullptr); };
    const time_t modified = time(m_lastModified);
    const bool strongDate =
        m_entityTag.empty() && modified >= 0 && time(GetWebHeader(easy, "Date")) > modified;
    // One tag in quotes: two that were folded into one line have more of them.
    const bool strongTag =
        m_entityTag.compare(0, 1, "\"") == 0 && m_entityTag.find('"', 1) + 1 == m_entityTag.size();
    if (GetWebHeader(easy, "Accept-Ranges") == "bytes")
        m_validator = strongTag ? m_entityTag : strongDate ? m_lastModified : std::string();
}

// Returns whether the last answer is a part of the same resource that follows the bytes received.
// If so, stores where the part ends, and the size of the whole if the answer gives it.
bool WebResource::Continues(CURL* easy, curl_off_t received)
{
    const std::string range = GetWebHeader(easy, "Content-Range");
    long long first = -1, last = -1, total = -1;
    std::sscanf(range.c_str(), "bytes %lld-%lld/%lld", &first, &last, &total);
    const curl_off_t size = GetWebInfo<curl_off_t>(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    // Anything more in the header, such as a second range, would be a contradiction.
    const bool fits = range == "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                                   (total < 0 ? "*" : std::to_string(total)) &&
                      first == received && last >= first && (total < 0 || last < total) &&
                      (m_size < 0 || (last < m_size && (total < 0 || total == m_size))) &&
                      last < 0x7fffffffffffffff && (size < 0 || size == last - first + 1);

    // Such an answer may omit a header that is not the validator.
    const std::string tag = GetWebHeader(easy, "ETag");
    const std::string modified = GetWebHeader(easy, "Last-Modified");
    const bool byTag = m_validator == m_entityTag;
    const bool same = GetWebHeader(easy, "Content-Encoding") == m_coding &&
                      (tag == m_entityTag || (!byTag && tag.empty())) &&
                      (modified == m_lastModified || (byTag && modified.empty()));
    if (!fits || !same)
        return false;
    m_end = last + 1;
    if (total >= 0)
        m_size = total;
    return true;
}
