// libcurl's handles, each with an owner that frees it, and the sockets it opens.

#pragma once

#include <curl/curl.h>

#include <memory>
#include <set>

#include <sys/socket.h>
#include <unistd.h>

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

// The sockets of a multi handle's connections, which it outlives. libcurl's functions return from
// input that has no use and no end only when the connection ends.
class CurlSockets
{
public:
    // Learns of the sockets that are opened for this handle.
    void Watch(CURL* easy)
    {
        curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlSockets::OnOpen);
        curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
        curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlSockets::OnClose);
        curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
    }

    // Makes every connection end at once, as if the server had closed it, without what has arrived.
    void HangUp() const
    {
        char rest[16384];
        for (const curl_socket_t socket : m_sockets)
            for (shutdown(socket, SHUT_RDWR); recv(socket, rest, sizeof(rest), MSG_DONTWAIT) > 0;)
                continue;
    }

private:
    static curl_socket_t OnOpen(void* self, curlsocktype, curl_sockaddr* address)
    {
        const int type = address->socktype | SOCK_CLOEXEC;
        const curl_socket_t opened = socket(address->family, type, address->protocol);
        return *static_cast<CurlSockets*>(self)->m_sockets.insert(opened).first;
    }

    static int OnClose(void* self, curl_socket_t socket)
    {
        static_cast<CurlSockets*>(self)->m_sockets.erase(socket);
        return close(socket);
    }

    std::set<curl_socket_t> m_sockets;
};
