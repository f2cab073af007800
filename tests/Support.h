// What the tests share. Each test has its own HOME, temporary directory and web server, and runs the main loop itself.

#pragma once

#include "tests/ScriptedServer.h"

#include <gtest/gtest.h>
#include <wx/evtloop.h>
#include <wx/filename.h>
#include <wx/wx.h>

#include <filesystem>
#include <fstream>
#include <random>

using Clock = std::chrono::steady_clock;

// Runs the main loop until done() returns true; returns false if that takes too long.
inline bool Pump(const std::function<bool()>& done, int seconds = 20)
{
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); !done() && Clock::now() < end; wxMilliSleep(1))
    {
        while (!done() && wxEventLoopBase::GetActive()->Pending())
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
        for (const char* name : {"home", "home/Desktop", "tmp", "run"})
            wxMkdir(Path(name));
        wxSetWorkingDirectory(m_folder);
        wxSetEnv("HOME", Path("home"));
        wxSetEnv("TMPDIR", "tmp"); // a relative path, which must keep its meaning
        wxSetEnv("XDG_RUNTIME_DIR", Path("run"));
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTPS_PROXY", "ALL_PROXY",
                                 "ftp_proxy", "SSL_CERT_FILE", "SSL_CERT_DIR", "XDG_CACHE_HOME"})
            wxUnsetEnv(name);
    }

    void TearDown() override { wxFileName::Rmdir(m_folder, wxPATH_RMDIR_RECURSIVE); }

    std::string Path(const std::string& name) const { return m_folder + "/" + name; }

    static std::string Read(const std::string& path)
    {
        std::ifstream file(path);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static void Write(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

    // Runs a command of the shell in the test's folder; returns whether it succeeds.
    static bool Shell(const std::string& command) { return std::system(command.c_str()) == 0; }

    // Returns the beginning of a sequence that looks random and is always the same.
    static std::string Bytes(size_t count)
    {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), std::minstd_rand());
        return bytes;
    }

    ScriptedServer m_server;

private:
    const std::string m_folder = mkdtemp(std::string("/tmp/kestrel-test-XXXXXX").data());
};
