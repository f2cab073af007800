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
#include <iterator>
#include <map>

using Clock = std::chrono::steady_clock;

inline std::string Ok(const std::string& headers, const std::string& body)
{
    return "HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body;
}

inline std::string Ok(size_t length, const std::string& body, const std::string& headers = "")
{
    return Ok("Content-Length: " + std::to_string(length) + "\r\n" + headers, body);
}

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
    TestServer() : ScriptedServer([this](Connection& connection) { Answer(connection); }) {}
    ~TestServer() { Stop(); }

    void Serve(const std::string& path, const std::string& content, Body body = Body::Whole)
    {
        const std::string said[] = {content, content, content.substr(0, content.size() / 2), "~~~" + content, "..."};
        const std::string& text = said[static_cast<int>(body)];
        const std::lock_guard<std::mutex> locker(m_lock);
        m_answers[path] = body == Body::NoLength ? Ok("", text) : Ok(content.size(), text);
    }

private:
    void Answer(Connection& connection)
    {
        const std::string request = connection.Read("\r\n\r\n");
        if (request.empty())
            return; // a client that has left
        std::unique_lock<std::mutex> locker(m_lock);
        const auto found = m_answers.find(request.substr(4, request.find(' ', 4) - 4));
        const std::string answer = found == m_answers.end() ? "HTTP/1.1 404 Not Found\r\n\r\n" : found->second;
        locker.unlock();
        connection.Say(answer);
    }

    std::mutex m_lock;
    std::map<std::string, std::string> m_answers;
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
        wxSetWorkingDirectory(m_folder);
        wxSetEnv("HOME", Path("home"));
        wxSetEnv("TMPDIR", "tmp"); // what it means must not change
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
