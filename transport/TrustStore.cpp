#include "transport/TrustStore.h"

#include <wx/log.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>

#include <unistd.h>

namespace
{

// A program that is carried from one distribution to another cannot know at build time.
const char* const PLACES[] = {"/etc/ssl/certs/ca-certificates.crt",                // Debian
                              "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora, RHEL
                              "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL
                              "/etc/ssl/ca-bundle.pem",                            // openSUSE
                              "/var/lib/ca-certificates/ca-bundle.pem",            // openSUSE
                              "/etc/ssl/cert.pem"};

const char* FindFile()
{
    const auto found = std::find_if(std::begin(PLACES), std::end(PLACES),
                                    [](const char* place) { return access(place, R_OK) == 0; });
    return found != std::end(PLACES) ? *found : nullptr;
}

} // namespace

void UseTrustStore(CURL* easy)
{
    const auto getEnv = [](const char* name)
    {
        const char* const value = std::getenv(name);
        return value && *value ? value : nullptr;
    };
    const char* const directory = getEnv("SSL_CERT_DIR");
    const char* const given = getEnv("SSL_CERT_FILE");
    const char* const file = given ? given : FindFile();
    for (const CURLoption option : {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO})
        curl_easy_setopt(easy, option, file);
    for (const CURLoption option : {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH})
        curl_easy_setopt(easy, option, directory);
    if (file || directory)
        return;
    std::string places;
    for (const char* const place : PLACES)
        places += std::string(" ") + place;
    wxLogVerbose("No certificates to trust: tried SSL_CERT_FILE, SSL_CERT_DIR,%s", places);
}
