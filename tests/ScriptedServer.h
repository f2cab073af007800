// A web server that sends exactly the given bytes, with or without TLS, and remembers the requests.

#pragma once

#include <openssl/ssl.h>

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

const std::string CHUNKED = "Transfer-Encoding: chunked\r\n", EMPTY_LINE = "\r\n\r\n";

inline std::string Answer(int status, const std::string& headers = "", const std::string& body = "a page")
{
    return "HTTP/1.1 " + std::to_string(status) + " Reason\r\n" + headers + "\r\n" + body;
}

inline std::string Ok(const std::string& headers, const std::string& body) { return Answer(200, headers, body); }

inline std::string Ok(size_t length, const std::string& body, const std::string& headers = "")
{
    return Ok("Content-Length: " + std::to_string(length) + "\r\n" + headers, body);
}

// Answers whose body is whole, lacks a byte, ends with the connection, stops half-way, or stops within a chunk.
inline std::string Whole(const std::string& body) { return Ok(body.size(), body); }
inline std::string AlmostWhole(const std::string& body) { return Ok(body.size(), body.substr(1)); }
inline std::string OfNoLength(const std::string& body) { return Ok("", body); }
inline std::string Half(const std::string& body) { return Ok(body.size(), body.substr(0, body.size() / 2)); }
inline std::string HalfAChunk(const std::string& body) { return Ok(CHUNKED, "fffff\r\n" + body); }
using Body = decltype(&Whole);

using Tls = std::shared_ptr<SSL_CTX>;

// Uses a certificate for 127.0.0.1 that only TEST_CERTIFICATE vouches for, and the first protocol that a client offers.
inline Tls MakeTls(int newest = TLS1_3_VERSION)
{
    const Tls tls(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    SSL_CTX_set_max_proto_version(tls.get(), newest);
    SSL_CTX_use_certificate_file(tls.get(), TEST_CERTIFICATE, SSL_FILETYPE_PEM);
    SSL_CTX_use_PrivateKey_file(tls.get(), TEST_KEY, SSL_FILETYPE_PEM);
    const auto chooseFirst = [](SSL*, auto** chosen, auto* size, auto* offered, unsigned, void*)
    {
        *chosen = offered + 1;
        *size = *offered;
        return SSL_TLSEXT_ERR_OK;
    };
    SSL_CTX_set_alpn_select_cb(tls.get(), chooseFirst, nullptr);
    return tls;
}

using Bio = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

inline void HangUp(const Bio& bio) { shutdown(static_cast<int>(BIO_get_fd(bio.get(), nullptr)), SHUT_RDWR); }

// One client's connection.
struct Connection
{
    Bio bio;
    std::future<void> dialogue; // its thread ends before the connection is destroyed

    bool Send(const std::string& text) const
    {
        return BIO_write(bio.get(), text.data(), static_cast<int>(text.size())) > 0;
    }

    // Reads up to and including this end, or what comes before the client closes.
    std::string Read(const std::string& end) const
    {
        std::string text;
        for (char byte; text.find(end) == std::string::npos && BIO_read(bio.get(), &byte, 1) == 1;)
            text += byte;
        return text;
    }

    // Sends the answer. After "***" in it, the rest is sent again and again. After "..." nothing more is sent, and the
    // connection stays open.
    void Say(const std::string& answer) const
    {
        const size_t end = std::min(answer.find("***"), answer.rfind("..."));
        Send(answer.substr(0, end));
        if (end == std::string::npos)
            return;
        std::string rest = answer.substr(end + 3);
        while (!rest.empty() && rest.size() < 16384)
            rest += rest;
        while (!rest.empty() && Send(rest))
            continue;
        Read("never said");
    }
};

class ScriptedServer
{
public:
    using Dialogue = std::function<void(const Connection& client)>;

    // Holds the dialogue with each client, and then closes the connection.
    explicit ScriptedServer(Dialogue dialogue, const Tls& tls = nullptr)
        : m_dialogue(std::move(dialogue)), m_scheme(tls ? "https" : "http")
    {
        signal(SIGPIPE, SIG_IGN); // OpenSSL would cause it when a client has closed
        if (tls)
            BIO_set_accept_bios(m_listener.get(), BIO_new_ssl(tls.get(), 0));
        BIO_do_accept(m_listener.get());
        m_thread = std::thread([this] { Accept(); });
    }

    // Answers the n-th connection's request with the n-th text, and all later ones with the last text; without texts,
    // as Serve() has set for the path. A request ends with the given end. What the rest does follows each answer.
    explicit ScriptedServer(std::vector<std::string> texts = {}, const Tls& tls = nullptr,
                            const std::string& end = EMPTY_LINE, const Dialogue& rest = Dialogue())
        : ScriptedServer(
              [=](const Connection& client)
              {
                  client.Say(Find(client.Read(end), texts));
                  if (rest)
                      rest(client);
              },
              tls)
    {
    }

    ~ScriptedServer()
    {
        HangUp(m_listener);
        m_thread.join();
        for (const Connection& client : m_clients)
            HangUp(client.bio);
    }

    // Sets the answer to requests for a path; returns its URL.
    std::string Serve(const std::string& path, const std::string& answer)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        m_answers[path] = answer;
        return Url(path);
    }

    std::string GetPort() const { return BIO_get_accept_port(m_listener.get()); }

    std::string Url(const std::string& path = "/file") const { return m_scheme + "://127.0.0.1:" + GetPort() + path; }

    std::string GetRequests()
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        return m_requests;
    }

private:
    std::string Find(const std::string& request, const std::vector<std::string>& texts)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        m_requests += request;
        if (!texts.empty())
            return texts[std::min(m_number++, texts.size() - 1)];
        const auto found = m_answers.find(request.substr(0, request.find(" HTTP")).erase(0, 4));
        return found == m_answers.end() ? Answer(404) : found->second;
    }

    void Accept()
    {
        while (BIO_do_accept(m_listener.get()) == 1)
        {
            m_clients.push_back({Bio(BIO_pop(m_listener.get()), &BIO_free_all), {}});
            m_clients.back().dialogue = std::async(std::launch::async,
                                                   [this, &client = m_clients.back()]
                                                   {
                                                       m_dialogue(client);
                                                       BIO_ssl_shutdown(client.bio.get());
                                                       HangUp(client.bio);
                                                   });
        }
    }

    const Dialogue m_dialogue;
    const std::string m_scheme;
    const Bio m_listener{BIO_new_accept("127.0.0.1:0"), &BIO_free_all};
    std::thread m_thread;
    std::mutex m_lock;
    std::map<std::string, std::string> m_answers; // of paths
    std::string m_requests;
    size_t m_number = 0;             // of the next text
    std::list<Connection> m_clients; // used by m_thread; the last member, because their dialogues use the others
};
