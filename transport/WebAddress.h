// The URL (RFC 3986) that a transfer asks for: first the one it was given, later the one that the
// answer came from. One thread uses an object.

#pragma once

#include "transport/CurlHandles.h"

#include <string>

class WebAddress
{
public:
    // Sets the URL, in UTF-8; it may contain user:password@. Returns false if it is not valid, or
    // if it is an ftp directory.
    bool Set(const std::string& url);

    // Moves to the URL that an answer came from, if it is valid. If it has no credentials, it gets
    // those of the first URL, provided that scheme, host and port are the same, or that only http
    // on port 80 has become https on port 443.
    void MoveTo(const char* url);

    // Returns the URL to ask for, with its credentials; empty if it is not valid.
    std::string GetUrl() const;

    // Returns the same URL without credentials, for the log.
    std::string GetText() const;

    bool IsFtp() const { return GetUrl().compare(0, 4, "ftp:") == 0; }

private:
    CurlUrl m_given, m_url;
};
