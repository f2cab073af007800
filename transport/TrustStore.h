// The certificates that servers and proxies are verified against.

#pragma once

#include <curl/curl.h>

// Makes a handle verify servers and proxies against the file in SSL_CERT_FILE or else the system's
// own file, and also against the directory in SSL_CERT_DIR if it is set. If there is none of these,
// the toolkit's verbose log says so, and the handle refuses every https server. May be called on
// any thread.
void UseTrustStore(CURL* easy);
