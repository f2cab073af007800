// The certificates that vouch for servers and proxies.

#pragma once

#include <curl/curl.h>

// Makes a handle verify against SSL_CERT_FILE and SSL_CERT_DIR, where they are set, else against
// the system's own store; that none can be found goes to the toolkit's verbose log, and then every
// https server is refused.
void UseTrustStore(CURL* easy);
