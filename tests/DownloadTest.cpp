// The download thread and its event, against a real server.

#include "download/wxDownloadEvent.h"
#include "download/wxDownloadFile.h"
#include "tests/Support.h"

#include <wx/frame.h>
#include <wx/log.h>

#include <pthread.h>

#include <random>

namespace
{

// Keeps the reports it receives as text, "status received/size". Belongs to nobody's event table,
// so that it also sees what is posted after the owner has let go.
class Receiver : public wxFrame
{
public:
    Receiver() : wxFrame(nullptr, wxID_ANY, "Receiver")
    {
        Bind(wxEVT_DOWNLOAD, &Receiver::On, this);
    }

    void QueueEvent(wxEvent* event) override
    {
        EXPECT_FALSE(m_letGo) << "posted after CancelDownload()";
        ++m_posted;
        wxFrame::QueueEvent(event);
    }

    std::atomic<bool> m_letGo{false};
    std::atomic<int> m_posted{0};
    bool m_ended = false;
    std::string m_reports;

private:
    void On(wxDownloadEvent& event)
    {
        m_ended = event.GetDownloadStatus() != wxDOWNLOAD_INPROGRESS;
        m_reports += wxString::Format("%d %lld/%lld ", event.GetDownloadStatus(),
                                      event.GetDownloadedBytes(), event.GetFileSize());
    }
};

// While it lives, keeps what is logged.
class LogText : public wxLog
{
public:
    LogText() : m_previous(wxLog::SetActiveTarget(this)) {}
    ~LogText() override { wxLog::SetActiveTarget(m_previous); }

    wxString m_text;

protected:
    void DoLogText(const wxString& text) override { m_text += text + "\n"; }

private:
    wxLog* const m_previous;
};

class DownloadTest : public KestrelTest
{
protected:
    // Downloads to the end and returns the reports.
    std::string Download(const wxString& url, const wxString& path, bool notify = true,
                         wxLongLong_t interval = 16384)
    {
        Receiver* const receiver = new Receiver;
        wxDownloadFile* const download = new wxDownloadFile(receiver, url, path, notify, interval);
        EXPECT_TRUE(Pump([=] { return receiver->m_ended; }));
        download->CancelDownload();
        const std::string reports = receiver->m_reports;
        receiver->Destroy();
        return reports;
    }
};

} // namespace

TEST_F(DownloadTest, EventIsCreatedByNameAndClonedWhole)
{
    const std::unique_ptr<wxObject> object(wxCreateDynamicObject("wxDownloadEvent"));
    wxDownloadEvent* const event = wxDynamicCast(object.get(), wxDownloadEvent);
    ASSERT_TRUE(event);
    EXPECT_STREQ(event->GetClassInfo()->GetBaseClassName1(), wxT("wxNotifyEvent"));
    EXPECT_EQ(event->GetEventType(), wxEVT_NULL);
    EXPECT_EQ(event->GetDownloadStatus(), wxDOWNLOAD_NONE);

    wxDownloadEvent full(wxEVT_DOWNLOAD, 7);
    full.SetDownloadStatus(wxDOWNLOAD_INPROGRESS);
    full.SetURL("http://a/b");
    full.SetDownloadedFile("/c");
    full.SetDownloadedBytes(4294967296);
    full.SetFileSize(5368709120);
    const std::unique_ptr<wxEvent> clone(full.Clone());
    const std::string before = full.GetURL().utf8_string();
    full.SetURL("changed");
    const wxDownloadEvent& copy = static_cast<const wxDownloadEvent&>(*clone);
    EXPECT_EQ(copy.GetEventType(), wxEVT_DOWNLOAD);
    EXPECT_EQ(copy.GetId(), 7);
    EXPECT_EQ(copy.GetDownloadStatus(), wxDOWNLOAD_INPROGRESS);
    EXPECT_EQ(copy.GetURL(), before);
    EXPECT_EQ(copy.GetDownloadedFile(), "/c");
    EXPECT_EQ(copy.GetDownloadedBytes(), 4294967296);
    EXPECT_EQ(copy.GetFileSize(), 5368709120);
}

TEST_F(DownloadTest, ReportsAndSavesWhatTheServerSends)
{
    const struct
    {
        const char* what;
        size_t size;
        Body body;
        bool notify;
        wxLongLong_t interval;
        const char* reports;
        size_t saved;
    } cases[] = {
        {"empty", 0, Body::Whole, true, 16384, "1 0/0 ", 0},
        {"one interval", 16384, Body::Slow, true, 16384, "2 16384/16384 1 16384/16384 ", 16384},
        {"full blocks", 40960, Body::Whole, true, 16384,
         "2 16384/40960 2 32768/40960 1 40960/40960 ", 40960},
        {"no progress wanted", 40960, Body::Whole, false, 16384, "1 40960/40960 ", 40960},
        {"no sensible interval", 40960, Body::Whole, true, 0, "1 40960/40960 ", 40960},
        {"no length", 20000, Body::NoLength, true, 16384, "2 16384/0 1 20000/0 ", 20000},
        {"cut short", 20000, Body::Cut, true, 16384, "1 10000/20000 ", 10000},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        const std::string content = Bytes(c.size);
        m_server.Serve("/file", content, c.body);
        Write(Path("file"), "an older and longer file" + content);
        EXPECT_EQ(Download(m_server.Url("/file"), Path("file"), c.notify, c.interval), c.reports);
        EXPECT_EQ(Read(Path("file")), content.substr(0, c.saved));
    }
}

TEST_F(DownloadTest, WhatCannotBeOpenedFailsAndTouchesNoFile)
{
    const wxString urls[] = {"",
                             "no-scheme",
                             "unknown://127.0.0.1/x",
                             "http://127.0.0.1:1/refused",
                             "http://no-such-host.invalid/x",
                             m_server.Url("/missing")};
    Write(Path("kept"), "kept");
    for (const wxString& url : urls)
    {
        SCOPED_TRACE(url);
        EXPECT_EQ(Download(url, Path("new")), "-1 0/0 ");
        EXPECT_FALSE(wxFileExists(Path("new")));
        EXPECT_EQ(Download(url, Path("kept")), "-1 0/0 ");
        EXPECT_EQ(Read(Path("kept")), "kept");
    }
}

TEST_F(DownloadTest, FileThatCannotBeWrittenIsAFailureAndTheLogSaysWhy)
{
    m_server.Serve("/file", Bytes(100000), Body::Whole);
    const std::pair<wxString, wxString> cases[] = {
        {Path("missing/file"), "No such file or directory"},
        {"/dev/full", "No space left on device"},
        {Path("home"), "Is a directory"}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first);
        const LogText log;
        EXPECT_EQ(Download(m_server.Url("/file"), c.first), "-1 0/0 ");
        wxLog::FlushActive();
        EXPECT_TRUE(log.m_text.Contains(c.second)) << log.m_text;
    }
}

TEST_F(DownloadTest, ThreadThatCannotBeCreatedIsLoggedAndLetGo)
{
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, size_t(1) << 46);
    pthread_setattr_default_np(&huge);
    const LogText log;
    Receiver receiver;
    wxDownloadFile* const download = new wxDownloadFile(&receiver, "", "", true, 1);
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(log.m_text.Contains("Can't create download thread!")) << log.m_text;
    download->CancelDownload();
}

// The owner lets go at any instant, the one between the last report and its handling included, and
// destroys the receiver at once. The sanitizers watch.
TEST_F(DownloadTest, NothingArrivesOnceTheOwnerHasLetGo)
{
    m_server.Serve("/small", Bytes(200), Body::Whole);
    m_server.Serve("/large", Bytes(300000), Body::Whole);
    m_server.Serve("/slow", Bytes(300000), Body::Slow);
    const wxString urls[] = {"", m_server.Url("/small"), m_server.Url("/large"),
                             m_server.Url("/slow"), m_server.Url("/missing")};
    std::mt19937 random(4711);
    int rounds = 0, ended = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; rounds < 4000 && std::chrono::steady_clock::now() < end; ++rounds)
    {
        Receiver receiver;
        wxDownloadFile* const download = new wxDownloadFile(
            &receiver, urls[random() % std::size(urls)], Path("file"), true, 4096);
        const auto instant =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 3000);
        while (std::chrono::steady_clock::now() < instant)
            std::this_thread::yield();
        download->CancelDownload();
        receiver.m_letGo = true;
        ended += receiver.m_posted > 0;
        receiver.DeletePendingEvents();
        wxTheApp->RemovePendingEventHandler(&receiver);
    }
    EXPECT_GT(rounds, 1000);
    EXPECT_GT(ended, rounds / 20) << "the instants no longer cover the last report";
}
