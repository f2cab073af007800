// Where a transfer asks: the http or https URL (RFC 3986) it was given, then those it is redirected
// to. From https it never goes back to http, and credentials stay with the host they were given
// for. An object belongs to one thread.

#pragma once

#include "transport/CurlHandles.h"

#include <string>

class WebAddress
{
public:
    // Goes to an address, as UTF-8; after the first it may be relative to the one before. Returns
    // null, or why it cannot be gone to, as a static text.
    const char* MoveTo(const std::string& address);

    // Makes a request of this handle ask there, with the credentials. The handle refers to this
    // object from then on. Returns whether all went well.
    bool ApplyTo(CURL* easy) const;

    // The address without credentials; empty before the first.
    std::string GetText() const;

private:
    CurlUrl m_url; // without credentials
    std::string m_user;
    std::string m_password;
};
