// What is known of a resource from its first answer on: how long it is, and what tells it from
// another one, so that the bytes of two are never joined when a transfer is resumed (RFC 9110,
// sections 8.8, 13 and 14). An object belongs to one thread.

#pragma once

#include <curl/curl.h>

#include <string>

// Returns the value of the last answer's header with this name, empty when there is none.
std::string GetWebHeader(CURL* easy, const char* name);

// Returns whether the last answer does not contradict itself about its length (RFC 9112, section
// 6.3); libcurl takes the last of several.
bool HasOneLength(CURL* easy);

class WebResource
{
public:
    // Takes what the first answer says of the resource.
    void Learn(CURL* easy);

    // What an If-Range header asks for: a strong entity tag, else a date; empty where the server
    // does not take byte ranges or gave neither.
    std::string GetValidator() const;

    // Returns whether the last answer, with status 206, goes on at the offset received, in bytes,
    // and is of the same resource; takes from it how far it reaches.
    bool Continues(CURL* easy, curl_off_t received);

    // Bytes in the whole, -1 when that is not known.
    curl_off_t GetSize() const { return m_size; }

    // Where the answer under way ends, in bytes from the start of the resource; -1 when it does not
    // say.
    curl_off_t GetEnd() const { return m_end; }

private:
    curl_off_t m_size = -1;
    curl_off_t m_end = -1;
    bool m_takesRanges = false;
    std::string m_coding;
    std::string m_entityTag;
    std::string m_lastModified;
};
