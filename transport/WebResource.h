// What the first answer says about a resource: its length, and what distinguishes it from another
// one, so that the bytes of two resources are never joined (RFC 9110, sections 8.8, 13 and 14). An
// object belongs to one thread.

#pragma once

#include <curl/curl.h>

#include <string>

// Returns the value of the header with this name in the last answer; empty if there is none.
std::string GetWebHeader(CURL* easy, const char* name);

// Returns whether the last answer has several different values for its length, range, coding,
// validators or location. libcurl would use the last of them.
bool IsContradiction(CURL* easy);

class WebResource
{
public:
    // Stores what the first answer says about the resource.
    void Learn(CURL* easy);

    // Returns the value for an If-Range header: the entity tag if it is strong, or, if there is no
    // tag, a strong date. Empty if the server gave neither or does not offer byte ranges.
    const std::string& GetValidator() const { return m_validator; }

    // Returns whether the server can be asked for the rest of the resource.
    bool IsResumable() const { return !m_validator.empty(); }

    // Returns whether the last answer, with status 206, is a part of the same resource that starts
    // at the offset received, in bytes. If so, stores where the part ends, and the size of the
    // whole if the answer gives it.
    bool Continues(CURL* easy, curl_off_t received);

    // Returns the size of the whole resource in bytes; -1 if it is not known.
    curl_off_t GetSize() const { return m_size; }

    // Returns where the last part ends, in bytes from the start of the resource; -1 if no part has
    // been accepted yet.
    curl_off_t GetEnd() const { return m_end; }

private:
    curl_off_t m_size = -1, m_end = -1;
    std::string m_validator, m_coding, m_entityTag, m_lastModified;
};
