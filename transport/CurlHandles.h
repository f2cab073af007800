// libcurl's handles, each with an owner that frees it, and the sockets it opens.

#pragma once

#include <curl/curl.h>

#include <memory>
#include <set>

template <auto function>
struct CurlCleanup
{
    template <typename T>
    void operator()(T* handle) const
    {
        function(handle);
    }
};

using CurlEasy = std::unique_ptr<CURL, CurlCleanup<curl_easy_cleanup>>;
using CurlMulti = std::unique_ptr<CURLM, CurlCleanup<curl_multi_cleanup>>;
using CurlUrl = std::unique_ptr<CURLU, CurlCleanup<curl_url_cleanup>>;
using CurlHeaders = std::unique_ptr<curl_slist, CurlCleanup<curl_slist_free_all>>;
using CurlText = std::unique_ptr<char, CurlCleanup<curl_free>>;

// The sockets of a multi handle's connections, which it outlives. While input keeps coming that
// libcurl has no use for, its functions do not return before the connection ends.
class CurlSockets
{
public:
    // Learns of the sockets that are opened for this handle.
    void Watch(CURL* easy);

    // Makes every connection end at once, as if the server had closed it.
    void HangUp() const;

private:
    static curl_socket_t OnOpen(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int OnClose(void* self, curl_socket_t socket);

    std::set<curl_socket_t> m_sockets;
};
