// The environment variables that the process inherits.

#pragma once

// Changes the variables so that the libraries find what the user meant, on every distribution and
// whatever program has started this one. Call it on the main thread, before the toolkit starts.
//
// LD_LIBRARY_PATH              removed
// G_FILENAME_ENCODING          UTF-8, unless it is set
// LC_MESSAGES, LANG, LANGUAGE  removed if the user's locale is "C"
// HTTP_PROXY                   removed; http_proxy and https_proxy get its value, unless they or
//                              variables that come before it are set
// SSL_CERT_FILE, SSL_CERT_DIR  removed if empty; then the first is the file with the system's
//                              certificates if there is one
void AdaptEnvironment();
