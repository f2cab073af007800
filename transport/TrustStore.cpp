#include "transport/TrustStore.h"

#include <wx/log.h>

#include <cstdlib>
#include <string>

#include <unistd.h>

// The places differ between distributions, and the portable bundle runs on all of these.
static const char* const PLACES[] = {
    "/etc/ssl/certs/ca-certificates.crt",                // Debian
    "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora, RHEL
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL
    "/etc/ssl/ca-bundle.pem",                            // openSUSE
    "/var/lib/ca-certificates/ca-bundle.pem",            // openSUSE
    "/etc/ssl/cert.pem"};

void UseTrustStore(CURL* easy)
{
    const char* file = std::getenv("SSL_CERT_FILE");
    const char* directory = std::getenv("SSL_CERT_DIR");
    directory = directory && *directory ? directory : nullptr;
    std::string tried = "SSL_CERT_FILE SSL_CERT_DIR";
    for (const char* const place : PLACES)
    {
        if (file && *file)
            break;
        file = access(place, R_OK) == 0 ? place : nullptr;
        tried += std::string(" ") + place;
    }
    for (const CURLoption option : {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO})
        curl_easy_setopt(easy, option, file);
    for (const CURLoption option : {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH})
        curl_easy_setopt(easy, option, directory);
    if (!file && !directory)
        wxLogVerbose("no certificates to trust in any of: %s", wxString::FromUTF8(tried));
}
