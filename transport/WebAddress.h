// Where a transfer asks: the URL (RFC 3986) that it was given, later the one its answer came from.
// Credentials go only to the host they were given for. An object belongs to one thread.

#pragma once

#include "transport/CurlHandles.h"

#include <string>

class WebAddress
{
public:
    // Takes the URL that was given, as UTF-8, which may hold user:password@. Returns whether it is
    // valid.
    bool Set(const std::string& url);

    // Goes to the URL that an answer came from, by libcurl. The credentials that were given come
    // along to the same host and port, and where the same host has asked for TLS.
    void MoveTo(const char* url);

    // The URL to ask for, credentials included.
    std::string GetUrl() const;

    // The URL for the log, without credentials; empty before a valid one was set.
    std::string GetText() const;

    bool IsFtp() const;

private:
    CurlUrl m_given, m_url;
};
