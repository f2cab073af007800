// Where a transfer asks: the URL (RFC 3986) that it was given, later the one its answer came from.
// An object belongs to one thread.

#pragma once

#include "transport/CurlHandles.h"

#include <string>

class WebAddress
{
public:
    // Takes a URL, as UTF-8, which may hold user:password@. Returns whether it is valid.
    bool Set(const std::string& url);

    // Goes to the URL that an answer came from, as libcurl tells it. The credentials that were
    // given come along to the same host and port, and where the same host has asked for TLS.
    void MoveTo(const char* url);

    // The URL to ask for; and the one for the log, without credentials, empty when it is not valid.
    std::string GetUrl() const;
    std::string GetText() const;

    bool IsFtp() const { return GetUrl().compare(0, 4, "ftp:") == 0; }

private:
    CurlUrl m_given, m_url;
};
