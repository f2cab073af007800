#include "transport/CurlHandles.h"

#include <sys/socket.h>
#include <unistd.h>

void CurlSockets::Watch(CURL* easy)
{
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlSockets::OnOpen);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlSockets::OnClose);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

void CurlSockets::HangUp() const
{
    for (const curl_socket_t socket : m_sockets)
        shutdown(socket, SHUT_RDWR);
}

curl_socket_t CurlSockets::OnOpen(void* self, curlsocktype, curl_sockaddr* address)
{
    const curl_socket_t opened =
        socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (opened != CURL_SOCKET_BAD)
        static_cast<CurlSockets*>(self)->m_sockets.insert(opened);
    return opened;
}

int CurlSockets::OnClose(void* self, curl_socket_t socket)
{
    static_cast<CurlSockets*>(self)->m_sockets.erase(socket);
    return close(socket);
}
