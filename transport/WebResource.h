// Judges whether an answer brings a resource, or the rest of it, and not another resource (RFC
// 9110, sections 8.8, 13 and 14). One thread uses an object.

#pragma once

#include <curl/curl.h>

#include <string>

// Returns what libcurl knows about the last answer. T is the type that the information has.
template <typename T>
T GetWebInfo(CURL* easy, CURLINFO info)
{
    T value = {};
    curl_easy_getinfo(easy, info, &value);
    return value;
}

// Returns the value of the header with this name in the last answer; empty if there is none. If it
// has different values, or more than nine, returns the text given for a contradiction.
std::string GetWebHeader(CURL* easy, const char* name, const std::string& contradiction = "");

class WebResource
{
public:
    enum class Verdict
    {
        None, // there is no answer yet
        Accept,
        TryAgain, // the server has a problem that may be temporary
        Complete, // all of the resource has arrived already
        Refuse
    };

    // Judges the last answer; call it when its header is complete. The first accepted answer says
    // what the resource is. received: how many bytes of the resource have arrived already.
    Verdict Judge(CURL* easy, curl_off_t received);

    // Returns whether an answer has been accepted.
    bool IsKnown() const { return m_known; }

    // Returns the value for an If-Range header: the entity tag if it is strong, or, if there is no
    // tag, a strong date. Empty if the server gave neither or does not offer byte ranges.
    const std::string& GetValidator() const { return m_validator; }

    // Returns whether the server can be asked for the rest of the resource.
    bool IsResumable() const { return !m_validator.empty(); }

    // Return the size of the whole resource, or -1 if it is not known; and where the last part
    // ends, or -1 if there is none. Both are in bytes from the resource's start.
    curl_off_t GetSize() const { return m_size; }
    curl_off_t GetEnd() const { return m_end; }

private:
    void Learn(CURL* easy);
    bool Continues(CURL* easy, curl_off_t received);

    bool m_known = false;
    curl_off_t m_size = -1, m_end = -1;
    std::string m_validator, m_coding, m_entityTag, m_lastModified;
};
