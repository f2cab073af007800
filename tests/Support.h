// What the tests share: a fresh HOME and temporary directory for each, a web server of its own with
// faults to order, and the main loop turned by hand.

#pragma once

#include <httplib.h>

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/file.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/utils.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

inline std::ostream& operator<<(std::ostream& stream, const wxString& text)
{
    return stream << text.utf8_string();
}

inline void PrintTo(const wxString& text, std::ostream* stream)
{
    *stream << text;
}

// What the server does with the body of an answer.
enum class Body
{
    Whole,
    NoLength, // whole, ended by closing the connection
    Cut,      // announced whole, closed after half
    Slow,     // a piece every few milliseconds
    Silent,   // announced, and nothing follows
    Elsewhere // the content is where to find it
};

class TestServer
{
public:
    // Speaks TLS when it is given a key and a certificate.
    explicit TestServer(const wxString& key = "", const wxString& certificate = "")
        : m_scheme(key.empty() ? "http" : "https")
    {
        if (key.empty())
            m_server.reset(new httplib::Server);
        else
            m_server.reset(new httplib::SSLServer(certificate.utf8_str(), key.utf8_str()));
        m_server->Get(".*", [this](const httplib::Request& request, httplib::Response& response)
                      { Answer(request.path, response); });
        m_port = m_server->bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server->listen_after_bind(); });
        // Once it has answered, all of its threads are there.
        httplib::Client client(m_scheme + "://127.0.0.1:" + std::to_string(m_port));
        client.enable_server_certificate_verification(false);
        while (!client.Get("/"))
            std::this_thread::yield();
    }

    ~TestServer()
    {
        m_stopping = true;
        m_server->stop();
        m_thread.join();
    }

    void Serve(const std::string& path, const std::string& content, Body body = Body::Whole)
    {
        m_files[path] = {content, body};
    }

    wxString Url(const std::string& path) const
    {
        return wxString::Format("%s://127.0.0.1:%d%s", m_scheme, m_port, path);
    }

private:
    void Answer(const std::string& path, httplib::Response& response)
    {
        const auto found = m_files.find(path);
        if (found == m_files.end())
        {
            response.status = 404;
            return;
        }
        const std::string& content = found->second.first;
        const Body body = found->second.second;
        if (body == Body::Whole)
            response.set_content(content, "application/octet-stream");
        else if (body == Body::Elsewhere)
            response.set_redirect(content);
        else if (body == Body::NoLength)
            response.set_content_provider("application/octet-stream",
                                          [&content](size_t, httplib::DataSink& sink)
                                          {
                                              sink.write(content.data(), content.size());
                                              sink.done();
                                              return true;
                                          });
        else
            response.set_content_provider(
                content.size(), "application/octet-stream",
                [this, &content, body](size_t offset, size_t, httplib::DataSink& sink)
                {
                    const size_t left = content.size() - offset;
                    if (body == Body::Cut)
                    {
                        sink.write(content.data(), left / 2);
                        return false;
                    }
                    wxMilliSleep(5);
                    if (body == Body::Slow)
                        sink.write(content.data() + offset, std::min<size_t>(left, 8192));
                    return !m_stopping;
                });
    }

    const std::string m_scheme;
    std::unique_ptr<httplib::Server> m_server;
    int m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    std::map<std::string, std::pair<std::string, Body>> m_files;
};

// Turns the main loop until done() holds; false when it does not within the time.
inline bool Pump(const std::function<bool()>& done, int seconds = 20)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done() && std::chrono::steady_clock::now() < end)
    {
        while (wxEventLoopBase::GetActive()->Pending())
            wxEventLoopBase::GetActive()->Dispatch();
        wxTheApp->ProcessPendingEvents();
        wxTheApp->ProcessIdle();
        wxMilliSleep(1);
    }
    return done();
}

class KestrelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        char folder[] = "/tmp/kestrel-test-XXXXXX";
        m_folder = mkdtemp(folder);
        for (const char* name : {"home", "home/Desktop", "tmp"})
            wxMkdir(Path(name));
        wxSetEnv("HOME", Path("home"));
        wxSetEnv("TMPDIR", Path("tmp"));
        for (const char* proxy :
             {"http_proxy", "https_proxy", "all_proxy", "HTTPS_PROXY", "ALL_PROXY"})
            wxUnsetEnv(proxy);
    }

    void TearDown() override { wxFileName::Rmdir(m_folder, wxPATH_RMDIR_RECURSIVE); }

    wxString Path(const wxString& name) const { return m_folder + "/" + name; }

    // Makes a key and a certificate for 127.0.0.1, signed by itself.
    static void MakeCertificate(const wxString& key, const wxString& certificate)
    {
        wxArrayString output, errors;
        ASSERT_EQ(wxExecute("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=Kestrel "
                            "-addext subjectAltName=IP:127.0.0.1 -keyout " +
                                key + " -out " + certificate,
                            output, errors, wxEXEC_SYNC | wxEXEC_NOEVENTS),
                  0);
    }

    static std::string Read(const wxString& path)
    {
        if (!wxFileExists(path))
            return "no file";
        wxFile file(path);
        std::string content(static_cast<size_t>(file.Length()), '\0');
        file.Read(&content[0], content.size());
        return content;
    }

    static void Write(const wxString& path, const std::string& content)
    {
        wxFile(path, wxFile::write).Write(content.data(), content.size());
    }

    static std::string Bytes(size_t count)
    {
        std::string bytes(count, '\0');
        for (size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<char>(i * 31 + i / 251);
        return bytes;
    }

    TestServer m_server;

private:
    wxString m_folder;
};
