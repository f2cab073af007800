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

    // Moves to the URL that an answer or a redirect gives; returns false if it is not valid. If it
    // has no credentials, it gets those of the first URL, provided that scheme, host and port are
    // the same, or that only http on port 80 has become https on port 443.
    bool MoveTo(const char* url);

    // Returns the URL to ask for, with its credentials; empty if it is not valid.
    std::string GetUrl() const;

    // Returns the same URL without credentials, for the log.
    std::string GetText() const;

    // Returns the scheme of the URL to ask for, in lower case.
    std::string GetScheme() const { return GetUrl().substr(0, GetUrl().find(':')); }

private:
    CurlUrl m_given, m_url;
};
