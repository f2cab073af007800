// The download thread and its event, against a real server.

#include "download/wxDownloadEvent.h"
#include "download/wxDownloadFile.h"
#include "tests/Support.h"

#include <wx/frame.h>

#include <random>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Keeps the reports it receives as text, "status received/size".
class Receiver : public wxFrame
{
public:
    Receiver() : wxFrame(nullptr, wxID_ANY, "Receiver") { Bind(wxEVT_DOWNLOAD, &Receiver::On, this); }

    void QueueEvent(wxEvent* event) override
    {
        EXPECT_FALSE(m_letGo) << "posted after CancelDownload()";
        ++m_posted;
        wxFrame::QueueEvent(event);
    }

    void On(wxDownloadEvent& event)
    {
        m_ended = event.GetDownloadStatus() != wxDOWNLOAD_INPROGRESS;
        m_reports += wxString::Format("%d %lld/%lld ", event.GetDownloadStatus(), event.GetDownloadedBytes(),
                                      event.GetFileSize());
    }

    std::atomic<bool> m_letGo{false};
    std::atomic<int> m_posted{0};
    bool m_ended = false;
    std::string m_reports;
};

class DownloadTest : public KestrelTest
{
protected:
    // What a thread logs is no box here.
    DownloadTest() { delete wxLog::SetActiveTarget(new wxLogStderr); }
    ~DownloadTest() override { delete wxLog::SetActiveTarget(nullptr); }

    // Downloads to the end and returns the reports.
    std::string Download(const std::string& url, const std::string& path, bool notify = true,
                         wxLongLong_t interval = 16384)
    {
        Receiver receiver;
        wxDownloadFile* const download = new wxDownloadFile(&receiver, url, path, notify, interval);
        EXPECT_TRUE(Pump([&] { return receiver.m_ended; }));
        download->CancelDownload();
        return receiver.m_reports;
    }
};

} // namespace

TEST_F(DownloadTest, EventIsCreatedByNameAndClonedWhole)
{
    const std::unique_ptr<wxObject> object(wxCreateDynamicObject("wxDownloadEvent"));
    wxDownloadEvent* const event = dynamic_cast<wxDownloadEvent*>(object.get());
    ASSERT_TRUE(event && event->GetDownloadStatus() == wxDOWNLOAD_NONE && event->GetEventType() == wxEVT_NULL);
    EXPECT_STREQ(event->GetClassInfo()->GetBaseClassName1(), wxT("wxNotifyEvent"));

    std::unique_ptr<wxDownloadEvent> full(new wxDownloadEvent(wxEVT_DOWNLOAD, 7));
    full->SetDownloadStatus(wxDOWNLOAD_INPROGRESS);
    full->SetURL("http://a/b");
    full->SetDownloadedFile("/c");
    full->SetDownloadedBytes(4294967296);
    full->SetFileSize(5368709120);
    full->SetFileError(ENOSPC);
    const std::unique_ptr<wxEvent> clone(full->Clone());
    full.reset();
    const wxDownloadEvent& copy = dynamic_cast<const wxDownloadEvent&>(*clone);
    EXPECT_TRUE(copy.GetEventType() == wxEVT_DOWNLOAD && copy.GetId() == 7);
    EXPECT_TRUE(copy.GetDownloadStatus() == wxDOWNLOAD_INPROGRESS && copy.GetURL() == "http://a/b");
    EXPECT_TRUE(copy.GetDownloadedFile() == "/c" && copy.GetDownloadedBytes() == 4294967296);
    EXPECT_TRUE(copy.GetFileSize() == 5368709120 && copy.GetFileError() == ENOSPC);
}

TEST_F(DownloadTest, ReportsAndSavesWhatTheServerSends)
{
    const struct
    {
        const char* what;
        size_t size, saved;
        Body body;
        bool notify;
        wxLongLong_t interval;
        const char* reports;
    } cases[] = {
        {"empty", 0, 0, Body::Whole, true, 16384, "1 0/0 "},
        {"one interval", 16384, 16384, Body::Slow, true, 16384, "2 16384/16384 1 16384/16384 "},
        {"full blocks", 40960, 40960, Body::Whole, true, 16384, "2 16384/40960 2 32768/40960 1 40960/40960 "},
        {"no progress wanted", 40960, 40960, Body::Whole, false, 16384, "1 40960/40960 "},
        {"no sensible interval", 40960, 40960, Body::Whole, true, 0, "1 40960/40960 "},
        {"no length", 20000, 20000, Body::NoLength, true, 16384, "2 16384/0 1 20000/0 "},
        {"cut short", 20000, 10000, Body::Cut, true, 16384, "1 10000/20000 "},
    };
    for (const auto& c : cases)
    {
        const std::string content = Bytes(c.size);
        m_server.Serve("/file", content, c.body);
        Write(Path("file"), "an older and longer file" + content);
        EXPECT_EQ(Download(m_server.Url("/file"), Path("file"), c.notify, c.interval), c.reports) << c.what;
        EXPECT_EQ(Read(Path("file")), content.substr(0, c.saved)) << c.what;
    }
    Write(Path("local"), "local");
    EXPECT_EQ(Download("FILE://" + Path("local"), Path("file")), "1 5/5 ") << "the toolkit's own protocol";
}

TEST_F(DownloadTest, WhatCannotBeOpenedOrWrittenFails)
{
    Write(Path("kept"), "kept");
    for (const std::string& url :
         {std::string(), std::string("no-scheme"), std::string("unknown://127.0.0.1/x"),
          std::string("http://127.0.0.1:1/x"), std::string("http://no-such-host.invalid/x"), m_server.Url("/missing")})
    {
        EXPECT_EQ(Download(url, Path("new")), "-1 0/0 ") << url;
        EXPECT_FALSE(wxFileExists(Path("new"))) << url;
        EXPECT_EQ(Download(url, Path("kept")), "-1 0/0 ") << url;
        EXPECT_EQ(Read(Path("kept")), "kept") << url;
    }

    m_server.Serve("/file", Bytes(100000));
    // In a place that all users share an own link is followed, and nobody else's.
    chmod(Path("tmp").c_str(), 01777);
    EXPECT_EQ(symlink(Path("kept").c_str(), Path("tmp/link").c_str()), 0);
    const bool others = lchown(Path("tmp/link").c_str(), 65534, 65534) == 0; // as root only
    EXPECT_EQ(Download(m_server.Url("/file"), Path("tmp/link")), others ? "-1 0/0 " : "1 100000/100000 ");
    EXPECT_EQ(Read(Path("kept")), others ? "kept" : Bytes(100000));
    for (const std::string& path : {Path("missing/file"), Path("home"), std::string("/dev/full")})
        EXPECT_EQ(Download(m_server.Url("/file"), path), "-1 0/0 ") << path;
}

// The owner lets go at any instant, the one between the last report and its handling included, and
// destroys the receiver at once. The sanitizers watch.
TEST_F(DownloadTest, NothingArrivesOnceTheOwnerHasLetGo)
{
    m_server.Serve("/small", Bytes(200));
    m_server.Serve("/large", Bytes(300000));
    m_server.Serve("/slow", Bytes(300000), Body::Slow);
    const std::string urls[] = {"", m_server.Url("/small"), m_server.Url("/large"), m_server.Url("/slow")};
    std::mt19937 random(4711);
    int rounds = 0, reported = 0;
    for (const auto end = Clock::now() + std::chrono::seconds(15); rounds < 3000 && Clock::now() < end; ++rounds)
    {
        Receiver receiver;
        wxDownloadFile* const download =
            new wxDownloadFile(&receiver, urls[random() % std::size(urls)], Path("file"), true, 4096);
        const auto instant = Clock::now() + std::chrono::microseconds(random() % 4000);
        while (Clock::now() < instant)
            std::this_thread::yield();
        download->CancelDownload();
        receiver.m_letGo = true;
        reported += receiver.m_posted > 0;
    }
    EXPECT_GT(rounds, 1000);
    EXPECT_GT(reported, rounds / 20) << "the instants no longer cover the last report";
}
