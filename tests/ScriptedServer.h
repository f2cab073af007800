// A server that says what it was told to, byte for byte, in the clear or over TLS, and remembers what it was asked.

#pragma once

#include <openssl/ssl.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

// Speaks TLS with a certificate for 127.0.0.1 that nobody vouches for but the file TEST_CERTIFICATE.
class Tls
{
public:
    explicit Tls(int newest = TLS1_3_VERSION, const std::string& protocol = "http/1.1") : m_protocol(protocol)
    {
        SSL_CTX_set_max_proto_version(m_context.get(), newest);
        SSL_CTX_use_certificate_file(m_context.get(), TEST_CERTIFICATE, SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(m_context.get(), TEST_KEY, SSL_FILETYPE_PEM);
        SSL_CTX_set_alpn_select_cb(m_context.get(), &Tls::ChooseProtocol, this);
    }

    SSL_CTX* Get() const { return m_context.get(); }

    // The name that the certificate has in a directory of certificates.
    std::string GetHashedName() const
    {
        char name[20];
        const X509* const certificate = SSL_CTX_get0_certificate(m_context.get());
        snprintf(name, sizeof(name), "%08lx.0", X509_subject_name_hash(const_cast<X509*>(certificate)));
        return name;
    }

private:
    static int ChooseProtocol(SSL*, const unsigned char** chosen, unsigned char* size, const unsigned char*, unsigned,
                              void* self)
    {
        const std::string& protocol = static_cast<Tls*>(self)->m_protocol;
        *chosen = reinterpret_cast<const unsigned char*>(protocol.data());
        *size = static_cast<unsigned char>(protocol.size());
        return SSL_TLSEXT_ERR_OK;
    }

    const std::string m_protocol;
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_context{SSL_CTX_new(TLS_server_method()), &SSL_CTX_free};
};

// One client's connection.
class Connection
{
public:
    Connection(int socket, const Tls* tls) : m_socket(socket), m_tls(tls ? SSL_new(tls->Get()) : nullptr)
    {
        if (m_tls)
            SSL_set_fd(m_tls, socket);
        m_open = !m_tls || SSL_accept(m_tls) == 1;
    }

    ~Connection()
    {
        if (m_tls)
            SSL_shutdown(m_tls);
        SSL_free(m_tls);
        shutdown(m_socket, SHUT_RDWR);
    }

    bool Send(const std::string& text)
    {
        const int size = static_cast<int>(text.size());
        return m_open && size == (m_tls ? SSL_write(m_tls, text.data(), size)
                                        : static_cast<int>(send(m_socket, text.data(), text.size(), MSG_NOSIGNAL)));
    }

    // Reads up to and including the end; less when the client has closed.
    std::string Read(const std::string& end)
    {
        std::string text;
        char byte;
        while (m_open && (text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0) &&
               (m_tls ? SSL_read(m_tls, &byte, 1) : recv(m_socket, &byte, 1, 0)) == 1)
            text += byte;
        return text;
    }

    // Sends the answer up to a mark of three characters, if there is one: what is behind "~~~" is sent slowly, what is
    // behind "***" for ever, and "..." is silence.
    void Say(const std::string& answer)
    {
        const size_t end = std::min({answer.find("~~~"), answer.find("***"), answer.rfind("...")});
        bool open = Send(answer.substr(0, end));
        std::string rest = end == std::string::npos ? "" : answer.substr(end + 3);
        if (rest.empty() && end != std::string::npos)
            Read("never said");
        else if (end != std::string::npos && answer[end] == '~')
            for (size_t at = 0; at < rest.size() && open; at += 8192)
            {
                open = Send(rest.substr(at, 8192));
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        else if (end != std::string::npos)
        {
            while (rest.size() < 16384)
                rest += rest;
            while (Send(rest))
                continue;
        }
    }

    // Sends a TLS message that carries nothing.
    bool SendTicket()
    {
        char byte;
        const bool there = recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0 || errno == EAGAIN;
        return there && SSL_new_session_ticket(m_tls) == 1 && SSL_do_handshake(m_tls) == 1;
    }

private:
    const int m_socket;
    SSL* const m_tls;
    bool m_open = false;
};

class ScriptedServer
{
public:
    using Dialogue = std::function<void(Connection& connection)>;

    // Speaks with each client until the dialogue returns.
    explicit ScriptedServer(Dialogue dialogue, const Tls* tls = nullptr) : m_dialogue(std::move(dialogue)), m_tls(tls)
    {
        signal(SIGPIPE, SIG_IGN); // OpenSSL knows no better
        sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof(address);
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), size);
        listen(m_listener, 50);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Accept(); });
    }

    // Answers the n-th request, each on a connection of its own, with the n-th text; the last one serves all that
    // follow.
    explicit ScriptedServer(std::vector<std::string> answers, const Tls* tls = nullptr)
        : ScriptedServer(
              [this, answers](Connection& connection)
              {
                  const size_t number = Remember(connection.Read("\r\n\r\n"));
                  connection.Say(answers[std::min(number, answers.size() - 1)]);
              },
              tls)
    {
    }

    ~ScriptedServer()
    {
        Stop();
        close(m_listener);
    }

    // Ends all dialogues. To be called by the destructor of a class whose members they use.
    void Stop()
    {
        shutdown(m_listener, SHUT_RDWR);
        if (m_thread.joinable())
            m_thread.join();
        std::unique_lock<std::mutex> locker(m_lock);
        for (const int socket : m_sockets)
            shutdown(socket, SHUT_RDWR);
        m_ended.wait(locker, [this] { return m_sockets.empty(); });
    }

    std::string Url(const std::string& path = "/file", const std::string& scheme = "") const
    {
        return (scheme.empty() ? m_tls ? "https" : "http" : scheme) + "://127.0.0.1:" + std::to_string(m_port) + path;
    }

    std::vector<std::string> GetRequests()
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        return m_requests;
    }

    // Returns how many requests came before.
    size_t Remember(const std::string& request)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        m_requests.push_back(request);
        return m_requests.size() - 1;
    }

private:
    void Accept()
    {
        for (int socket; (socket = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
        {
            const std::lock_guard<std::mutex> locker(m_lock);
            m_sockets.insert(socket);
            std::thread(&ScriptedServer::Speak, this, socket).detach();
        }
    }

    void Speak(int socket)
    {
        {
            Connection connection(socket, m_tls);
            m_dialogue(connection);
        }
        const std::lock_guard<std::mutex> locker(m_lock);
        m_sockets.erase(socket);
        close(socket);
        m_ended.notify_all();
    }

    const Dialogue m_dialogue;
    const Tls* const m_tls;
    const int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_port = 0;
    std::thread m_thread;
    std::mutex m_lock;
    std::condition_variable m_ended;
    std::set<int> m_sockets;
    std::vector<std::string> m_requests;
};
