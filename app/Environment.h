// The environment variables that the process inherits.

#pragma once

// Changes the variables so that the libraries find what the user meant, on every distribution and
// whatever program has started this one. Call it on the main thread, before the toolkit starts.
//
// LD_LIBRARY_PATH              removed
// G_FILENAME_ENCODING          set to UTF-8 unless it is set already
// LC_MESSAGES, LANG, LANGUAGE  removed if the user's locale is "C", "C.UTF-8" or "POSIX"
// HTTP_PROXY                   removed; http_proxy gets its value unless it is set, and https_proxy
//                              unless it, HTTPS_PROXY, all_proxy or ALL_PROXY is set
// SSL_CERT_FILE, SSL_CERT_DIR  removed if empty; SSL_CERT_FILE, unless it is set, becomes the path
//                              of the system's certificates, if they are found
void AdaptEnvironment();
