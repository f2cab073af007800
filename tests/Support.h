// What the tests share: a fresh HOME and temporary directory for each, a web server of its own with
// faults to order, and the main loop turned by hand. Texts are UTF-8 in std::string.

#pragma once

#include "tests/ScriptedServer.h"

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

class TestServer : public ScriptedServer
{
public:
    TestServer() : ScriptedServer([this](Connection& connection, int) { Answer(connection); }) {}
    ~TestServer() { Stop(); }

    void Serve(const std::string& path, const std::string& content, Body body = Body::Whole)
    {
        const std::lock_guard<std::mutex> locker(m_lock);
        m_files[path] = {content, body};
    }

private:
    void Answer(Connection& connection)
    {
        const std::string request = connection.Read("\r\n\r\n");
        if (request.empty())
            return; // a client that has left
        std::unique_lock<std::mutex> locker(m_lock);
        const auto file = m_files.find(request.substr(4, request.find(' ', 4) - 4));
        const auto [content, body] = file != m_files.end() ? file->second : std::pair<std::string, Body>();
        const std::string status = file != m_files.end() ? "200 OK" : "404 Not Found";
        locker.unlock();

        const std::string length = "Content-Length: " + std::to_string(content.size()) + "\r\n";
        connection.Send("HTTP/1.1 " + status + "\r\n" + (body == Body::NoLength ? "" : length) + "\r\n");
        if (body == Body::Silent)
            connection.Read("never said");
        const size_t end = body == Body::Cut ? content.size() / 2 : content.size();
        const size_t piece = body == Body::Slow ? 8192 : end;
        for (size_t sent = 0; sent < end && connection.Send(content.substr(sent, std::min(piece, end - sent)));
             sent += piece)
            if (body == Body::Slow)
                wxMilliSleep(5);
    }

    std::mutex m_lock;
    std::map<std::string, std::pair<std::string, Body>> m_files;
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
