// What is known of a resource from its first answer on: its length, and what tells it from another
// one, so that the bytes of two are never joined (RFC 9110, sections 8.8, 13 and 14). An object
// belongs to one thread.

#pragma once

#include <curl/curl.h>

#include <string>

// Returns the value of the last answer's header with this name, empty when there is none.
std::string GetWebHeader(CURL* easy, const char* name);

// Returns whether the last answer says two things about its length, its place or what it is part
// of; libcurl takes the last of several.
bool IsContradiction(CURL* easy);

class WebResource
{
public:
    // Takes what the first answer says of the resource.
    void Learn(CURL* easy);

    // What an If-Range header asks for: a strong entity tag, or a date when there is no tag and the
    // date is strong; empty where the server gave neither or does not take byte ranges.
    const std::string& GetValidator() const { return m_validator; }
    bool IsResumable() const { return !m_validator.empty(); }

    // Returns whether the last answer, with status 206, goes on at the offset received, in bytes,
    // and is of the same resource; takes from it how far it reaches.
    bool Continues(CURL* easy, curl_off_t received);

    // Bytes in the whole, and up to the end of the part under way; -1 when that is not known or the
    // answer is no part.
    curl_off_t GetSize() const { return m_size; }
    curl_off_t GetEnd() const { return m_end; }

private:
    curl_off_t m_size = -1, m_end = -1;
    std::string m_validator, m_coding, m_entityTag, m_lastModified;
};
