#include "app/Environment.h"

#include <cstdlib>
#include <string>

#include <unistd.h>

namespace
{

// The places differ between distributions, and the portable bundle runs on all of these.
const char* const CERTIFICATES[] = {
    "/etc/ssl/certs/ca-certificates.crt",                // Debian
    "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora, RHEL
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL
    "/etc/ssl/ca-bundle.pem",                            // openSUSE
    "/var/lib/ca-certificates/ca-bundle.pem",            // openSUSE
    "/etc/ssl/cert.pem"};

std::string GetVariable(const char* name)
{
    const char* const value = getenv(name);
    return value ? value : std::string();
}

// The locale "C" means that no text is translated. The toolkit knows no such language and would
// take one from a variable that does not count then.
void DropOverriddenLanguages()
{
    std::string locale;
    for (const char* const name : {"LANG", "LC_MESSAGES", "LC_ALL"})
        if (const std::string value = GetVariable(name); !value.empty())
            locale = value;
    if (locale == "C" || locale == "POSIX" || locale.compare(0, 2, "C.") == 0)
        for (const char* const name : {"LC_MESSAGES", "LANG", "LANGUAGE"})
            unsetenv(name);
}

// If HTTP_PROXY is set, wxURL uses its own http with that proxy, whatever the scheme. So its value
// moves to the variables that libcurl reads, unless these are set.
void AdoptProxy()
{
    const std::string proxy = GetVariable("HTTP_PROXY");
    if (!proxy.empty())
    {
        setenv("http_proxy", proxy.c_str(), 0);
        if (!getenv("HTTPS_PROXY") && !getenv("all_proxy") && !getenv("ALL_PROXY"))
            setenv("https_proxy", proxy.c_str(), 0);
    }
    unsetenv("HTTP_PROXY");
}

void FindCertificates()
{
    for (const char* const name : {"SSL_CERT_FILE", "SSL_CERT_DIR"})
        if (GetVariable(name).empty())
            unsetenv(name);
    for (const char* const place : CERTIFICATES)
        if (access(place, R_OK) == 0)
            setenv("SSL_CERT_FILE", place, 0);
}

} // namespace

void AdaptEnvironment()
{
    // The programs that GTK starts to read pictures must not use the libraries of the application
    // that started us. For our own libraries, the loader has read the variable already.
    unsetenv("LD_LIBRARY_PATH");
    // GTK and the toolkit read the encoding of file names from this variable.
    setenv("G_FILENAME_ENCODING", "UTF-8", 0);
    // GTK aborts if it finds no icons. The application may have left only its own folders here.
    // An empty variable counts as unset, but an empty entry as the current folder.
    if (const std::string folders = GetVariable("XDG_DATA_DIRS"); !folders.empty())
        setenv("XDG_DATA_DIRS", (folders + ":/usr/local/share:/usr/share").c_str(), 1);
    else
        unsetenv("XDG_DATA_DIRS");
    DropOverriddenLanguages();
    AdoptProxy();
    FindCertificates();
}
