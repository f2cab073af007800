// What the tests share: a fresh HOME and temporary directory for each, a web server of its own with
// faults to order, and the main loop turned by hand. Texts are UTF-8 in std::string.

#pragma once

#include <httplib.h>

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/evtloop.h>
#include <wx/filename.h>
#include <wx/utils.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

using Clock = std::chrono::steady_clock;

// What the server does with the body of an answer.
enum class Body
{
    Whole,
    NoLength, // whole, ended by closing the connection
    Cut,      // announced whole, closed after half
    Slow,     // a piece every few milliseconds
    Silent,   // announced, never sent
};

class TestServer
{
public:
    TestServer()
    {
        m_server.Get(".*", [this](const httplib::Request& request, httplib::Response& response)
                     { Answer(Find(request.path), response); });
        m_server.set_keep_alive_max_count(1);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        // Once it has answered, all of its threads are there.
        while (!httplib::Client(Url("")).Get("/"))
            std::this_thread::yield();
    }

    ~TestServer()
    {
        m_stopping = true;
        m_server.stop();
        m_thread.join();
    }

    void Serve(const std::string& path, const std::string& content, Body body = Body::Whole)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        m_files[path] = std::make_shared<File>(File{content, body});
    }

    std::string Url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(m_port) + path; }

private:
    struct File
    {
        std::string content;
        Body body;
    };

    std::shared_ptr<File> Find(const std::string& path)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        return m_files[path];
    }

    void Answer(const std::shared_ptr<File>& file, httplib::Response& response)
    {
        response.status = file ? 200 : 404;
        if (!file)
            return;
        const std::string type = "application/octet-stream";
        if (file->body == Body::Whole)
            response.set_content(file->content, type);
        else if (file->body == Body::NoLength)
            response.set_content_provider(
                type, [file](size_t, httplib::DataSink& sink)
                { return sink.write(file->content.data(), file->content.size()), sink.done(), true; });
        else
            response.set_content_provider(file->content.size(), type,
                                          [this, file](size_t from, size_t left, httplib::DataSink& sink)
                                          { return Send(file->content.data() + from, left, file->body, sink); });
    }

    bool Send(const char* data, size_t left, Body body, httplib::DataSink& sink)
    {
        do
            wxMilliSleep(5);
        while (body == Body::Silent && !m_stopping);
        if (body == Body::Cut)
            sink.write(data, left / 2);
        else
            sink.write(data, std::min<size_t>(left, 8192));
        return body != Body::Cut && !m_stopping;
    }

    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    std::mutex m_lock;
    std::map<std::string, std::shared_ptr<File>> m_files;
};

// Turns the main loop until done() holds; false when it does not within the time.
inline bool Pump(const std::function<bool()>& done, int seconds = 20)
{
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); !done() && Clock::now() < end; wxMilliSleep(1))
    {
        while (wxEventLoopBase::GetActive()->Pending())
            wxEventLoopBase::GetActive()->Dispatch();
        wxTheApp->ProcessPendingEvents();
        wxTheApp->ProcessIdle();
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
        for (const char* name : {"home", "home/Desktop", "tmp", "run"})
            wxMkdir(Path(name));
        wxSetEnv("HOME", Path("home"));
        wxSetEnv("TMPDIR", Path("tmp"));
        wxSetEnv("XDG_RUNTIME_DIR", Path("run"));
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "HTTPS_PROXY", "ALL_PROXY"})
            wxUnsetEnv(name);
    }

    void TearDown() override { wxFileName::Rmdir(m_folder, wxPATH_RMDIR_RECURSIVE); }

    std::string Path(const std::string& name) const { return m_folder + "/" + name; }

    static std::string Read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static void Write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
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
    std::string m_folder;
};
