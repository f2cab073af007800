// The download thread and its event, against a real server.

#include "download/wxDownloadEvent.h"
#include "download/wxDownloadFile.h"
#include "tests/Support.h"
#include "transport/wxWebProtocol.h"

#include <wx/sstream.h>

#include <sys/stat.h>

std::atomic<int> users{0}; // threads that have data of their own, which takes a while to destroy

// A protocol whose only file contains its time-out. It gives its thread such data, as libcrypto does.
class TimeoutProtocol : public wxWebProtocol
{
    wxDECLARE_DYNAMIC_CLASS(TimeoutProtocol);
    DECLARE_PROTOCOL(TimeoutProtocol)

public:
    wxInputStream* GetInputStream(const wxString&) override
    {
        static pthread_key_t key;
        static const int created = pthread_key_create(&key, [](void*) { wxMilliSleep(50), --users; });
        EXPECT_EQ(created + pthread_setspecific(key, &key), 0);
        ++users;
        return new wxStringInputStream(std::to_string(GetTimeout()));
    }
};
wxIMPLEMENT_DYNAMIC_CLASS(TimeoutProtocol, wxWebProtocol);
IMPLEMENT_PROTOCOL(TimeoutProtocol, wxT("timeout"), wxT("1"), false)

namespace
{

using DownloadTest = KestrelTest;

// Keeps the reports as text: "status received/size", then "cut" or the name of the file's error.
class Receiver : public wxFrame
{
public:
    // No test here answers the boxes that a log message would open.
    Receiver() : wxFrame(nullptr, wxID_ANY, "Receiver")
    {
        Bind(wxEVT_DOWNLOAD, &Receiver::On, this);
        delete wxLog::SetActiveTarget(new wxLogStderr);
    }
    ~Receiver() override { delete wxLog::SetActiveTarget(nullptr); }

    void On(wxDownloadEvent& event)
    {
        m_ended = event.GetDownloadStatus() != wxDOWNLOAD_INPROGRESS;
        m_reports += wxString::Format("%d %lld/%lld %s", event.GetDownloadStatus(), event.GetDownloadedBytes(),
                                      event.GetFileSize(), event.IsCut() ? "cut " : "");
        if (event.GetFileError() != 0)
            m_reports += strerrorname_np(event.GetFileError());
    }

    bool m_ended = false;
    std::string m_reports;
};

// Downloads to the end and returns the reports.
std::string Download(const std::string& url, const std::string& path, bool notify = true, wxLongLong_t interval = 16384,
                     wxLongLong_t limit = -1)
{
    Receiver receiver;
    wxDownloadFile* const download = new wxDownloadFile(&receiver, url, path, notify, interval, limit);
    EXPECT_TRUE(Pump([&] { return receiver.m_ended; }));
    download->CancelDownload();
    return receiver.m_reports;
}

} // namespace

TEST_F(DownloadTest, ReportsAndSavesWhatTheServerSends)
{
    const struct
    {
        const char *what, *reports;
        size_t size, saved;
        Body body = Whole;
        bool notify = true;
        wxLongLong_t interval = 16384;
    } cases[] = {
        {"empty", "1 0/0 ", 0, 0},
        {"full blocks", "2 16384/40960 2 32768/40960 1 40960/40960 ", 40960, 40960},
        {"no progress wanted", "1 40960/40960 ", 40960, 40960, Whole, false},
        {"no sensible interval", "1 40960/40960 ", 40960, 40960, Whole, true, 0},
        {"no length", "2 16384/0 1 20000/0 ", 20000, 20000, OfNoLength},
        {"cut short", "1 10000/20000 cut ", 20000, 10000, Half},
        {"cut short of an unknown size", "2 16384/0 1 20000/0 cut ", 20000, 20000, HalfAChunk},
    };
    for (const auto& c : cases)
    {
        const std::string content = Bytes(c.size), url = m_server.Serve("/file", c.body(content));
        Write(Path("file"), "an older and longer file" + content);
        EXPECT_EQ(Download(url, Path("file"), c.notify, c.interval), c.reports) << c.what;
        EXPECT_EQ(Read(Path("file")), content.substr(0, c.saved)) << c.what;
    }
    Write(Path("local"), "local");
    const mode_t mask = umask(0);
    EXPECT_EQ(Download("FILE://" + Path("local"), Path("new")), "1 5/5 ") << "the toolkit's own protocol";
    umask(mask);
    EXPECT_EQ(std::filesystem::status(Path("new")).permissions(), std::filesystem::perms(0666));
}

TEST_F(DownloadTest, AddressThatCannotBeOpenedLeavesTheFileAlone)
{
    Write(Path("kept"), "kept");
    const std::string missing = m_server.Url("/missing");
    for (const std::string url : {"", "no-scheme", "unknown://127.0.0.1/x", "http://127.0.0.1:1/x",
                                  "http://no-such-host.invalid/x", missing.c_str()})
    {
        EXPECT_EQ(Download(url, Path("new")), "-1 0/0 ") << url;
        EXPECT_FALSE(wxFileExists(Path("new"))) << url;
        EXPECT_EQ(Download(url, Path("kept")), "-1 0/0 ") << url;
        EXPECT_EQ(Read(Path("kept")), "kept") << url;
    }
}

TEST_F(DownloadTest, FileThatCannotBeWrittenIsReportedAndPlantedOnesAreLeftAlone)
{
    Write(Path("kept"), "kept");
    EXPECT_TRUE(Shell("mkdir -m 755 own theirs && mkdir -m 1770 team && mkdir -m 1777 all && "
                      "for folder in own theirs team all; do cp kept $folder/target && cp kept $folder/others && "
                      "ln -s target $folder/link && ln kept $folder/hard && mkfifo $folder/pipe || exit; done"));
    const bool root = Shell("chown -f nobody theirs all/others"); // others may not give files away

    const std::string url = m_server.Serve("/file", Whole(Bytes(100000)));
    const std::string whole = "1 100000/100000 ", failed = "-1 0/0 ";
    const std::pair<std::string, std::string> cases[] = {
        {Path("kept/file"), failed + "ENOTDIR"},
        {Path("home"), failed + "EISDIR"},
        {"/dev/full", failed + "ENOSPC"},
        {Path("own/pipe"), failed + "ENXIO"},
        {Path("own/link"), whole},
        {Path("theirs/link"), root ? failed + "ELOOP" : whole},
        {Path("team/link"), failed + "ELOOP"},
        {Path("team/hard"), failed + "EPERM"},
        {Path("all/link"), failed + "ELOOP"},
        {Path("all/others"), root ? failed + "EPERM" : whole},
        {Path("all/new"), whole},
        {Path("all/target"), whole},
    };
    for (const auto& [path, reports] : cases)
        EXPECT_EQ(Download(url, path, false), reports) << path;
    const std::string small = m_server.Serve("/small", Whole("small"));
    EXPECT_EQ(Download(small, "/dev/full"), failed + "ENOSPC") << "seen only when the file is closed";
    const auto remove = [](const Connection&) { Shell("until rm removed 2>/dev/null; do sleep 0.01; done"); };
    ScriptedServer server({OfNoLength("data")}, nullptr, EMPTY_LINE, remove);
    EXPECT_EQ(Download(server.Url(), Path("removed")), failed + "ENOENT");
    EXPECT_EQ(Read(Path("kept")), "kept");
    EXPECT_EQ(Read(Path("own/target")), Bytes(100000));
    const auto swap = [](const Connection& c)
    { c.Read(EMPTY_LINE), Shell("mv own gone && ln -s team own"), c.Say(Whole("data")); };
    EXPECT_EQ(Download(ScriptedServer(swap).Url(), Path("own/target")), failed + "ENOENT");
    EXPECT_EQ(Read(Path("team/target")), "kept");
}

TEST_F(DownloadTest, EndsAtItsLimitAndEmptiesNoFileOnceCancelled)
{
    EXPECT_EQ(Download(m_server.Serve("/endless", Ok("", "***x")), Path("file"), false, 0, 5000), "1 8192/0 ");
    EXPECT_EQ(Read(Path("file")), std::string(8192, 'x'));

    EXPECT_EQ(Download("timeout:", Path("file")), "1 3/3 ");
    EXPECT_EQ(Read(Path("file")), "100") << "seconds that a server may be silent";
    new wxDownloadFile(new Receiver, "timeout:", "/dev/null", false, 0); // its thread ends with the process
    EXPECT_TRUE(Pump([] { return users == 1; }));
    std::atexit([] { users > 0 ? std::abort() : void(); }); // called when the toolkit has waited

    // Opening a pipe waits until somebody writes to it, which is after the cancellation here.
    EXPECT_TRUE(Shell("mkfifo pipe"));
    Receiver receiver;
    (new wxDownloadFile(&receiver, "file://" + Path("pipe"), Path("file"), false, 0))->CancelDownload();
    Write(Path("pipe"), "new");
    wxMilliSleep(200);
    EXPECT_EQ(Read(Path("file")), "100");
}

TEST_F(DownloadTest, NoReportComesAfterCancelling)
{
    const std::string all = Bytes(1 << 20), slow = m_server.Serve("/slow", Half(all) + "...");
    const std::string urls[] = {m_server.Serve("/fast", Whole(all)), slow, m_server.Url("/missing"), "unknown:"};
    std::minstd_rand random(std::random_device{}());
    for (int i = 0; i < 300; ++i)
    {
        const auto receiver = std::make_unique<Receiver>(); // the address sanitizer sees a use after its end
        wxDownloadFile* const download = new wxDownloadFile(receiver.get(), urls[i % 4], Path("file"), true, 4096);
        const auto instant = Clock::now() + std::chrono::microseconds(random() % 10000);
        Pump([&] { return Clock::now() > instant; });
        download->CancelDownload();
    }
    wxMilliSleep(300);
    EXPECT_FALSE(wxTheApp->HasPendingEvents()) << "a report for a receiver that was destroyed";
}

TEST_F(DownloadTest, ReportsNeitherPileUpNorWaitForTheNetwork)
{
    const std::string large = m_server.Serve("/large", Whole(std::string(32 << 20, 'x')));
    Receiver receiver;
    wxDownloadFile* download = new wxDownloadFile(&receiver, large, Path("file"), true, 16384);
    for (int i = 0; i < 200 && Read(Path("file")).size() < 255 * 16384; ++i)
        wxMilliSleep(100);
    wxMilliSleep(300);
    EXPECT_LT(Read(Path("file")).size(), 600 * 16384u) << "after 256 reports the transfer waits";
    EXPECT_TRUE(Pump([&] { return receiver.m_ended; }));
    download->CancelDownload();
    EXPECT_EQ(std::count(receiver.m_reports.begin(), receiver.m_reports.end(), '/'), (32 << 20) / 16384 + 1);

    receiver.m_reports.clear();
    const std::string stalled = m_server.Serve("/stalled", Ok(99999, std::string(33000, 'x') + "..."));
    download = new wxDownloadFile(&receiver, stalled, Path("file"), true, 16384);
    EXPECT_TRUE(Pump([&] { return receiver.m_reports == "2 16384/99999 2 32768/99999 "; })) << receiver.m_reports;
    EXPECT_EQ(Download(m_server.Url("/large"), Path("file")), "-1 0/0 EBUSY") << "one file of two downloads";
    download->CancelDownload();
}
