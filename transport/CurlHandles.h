// Owners that free libcurl's handles, and the sockets that libcurl opens.

#pragma once

#include <curl/curl.h>

#include <map>
#include <memory>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

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

// The sockets of a multi handle's connections; an object must outlive the handle. When useless
// input comes without end, libcurl's functions return only if the connection ends. An object
// belongs to one thread.
class CurlSockets
{
public:
    // Registers this object for the sockets that libcurl opens for the handle.
    void Watch(CURL* easy)
    {
        curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, &CurlSockets::OnOpen);
        curl_easy_setopt(easy, CURLOPT_SOCKOPTDATA, this);
    }

    // Ends every connection at once, as if the server had closed it, and drops what has arrived on
    // it.
    void HangUp() const
    {
        char rest[16384];
        for (const auto& [socket, inode] : m_sockets)
            if (GetInode(socket) == inode)
                for (shutdown(socket, SHUT_RDWR);
                     recv(socket, rest, sizeof(rest), MSG_DONTWAIT) > 0;)
                    continue;
    }

private:
    static int OnOpen(void* self, curl_socket_t socket, curlsocktype)
    {
        if (const auto inode = GetInode(socket))
            static_cast<CurlSockets*>(self)->m_sockets[socket] = inode;
        return CURL_SOCKOPT_OK;
    }

    // The thread sanitizer would report fstat() when the socket is another thread's by now.
    static unsigned long long GetInode(curl_socket_t socket)
    {
        struct statx found;
        const int result = statx(socket, "", AT_EMPTY_PATH, STATX_INO, &found);
        return result == 0 ? found.stx_ino : 0;
    }

    // libcurl does not tell which sockets it has closed. Another file may get the number of a
    // closed socket, but not its inode.
    std::map<curl_socket_t, unsigned long long> m_sockets;
};
