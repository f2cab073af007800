#include "download/wxDownloadFile.h"

#include "download/wxDownloadEvent.h"
#include "transport/wxWebProtocol.h"

#include <wx/file.h>
#include <wx/filename.h>
#include <wx/log.h>
#include <wx/module.h>
#include <wx/protocol/protocol.h>
#include <wx/stream.h>
#include <wx/url.h>
#include <wx/window.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// How long connecting, or one read, may go without an answer.
constexpr wxUint32 TIMEOUT_SECONDS = 100;

// What is read and written at a time, in bytes; a progress interval is best a multiple of it.
constexpr size_t BLOCK_SIZE = 4096;

// How many progress reports may wait to be handled.
constexpr long QUEUE_LIMIT = 256;

constexpr wxLongLong_t UNKNOWN_SIZE = -1; // wxInputStream::GetSize()'s marker, all ones

// How long the process's end waits for threads that have been told to stop. Closing the window
// takes effect within a second, also when a thread sits in a read that cannot be interrupted.
constexpr std::chrono::milliseconds EXIT_WAIT(500);

// What the main thread and the download threads share. One lock serves all downloads: it is held
// only for a post, a log message or a change of a list, and unlike a lock inside the object it
// outlives every thread that waits for it.
struct HandOff
{
    wxMutex lock;
    wxCondition receiverCleared{lock};
    std::vector<wxDownloadFile*> downloads; // whose threads have been created
    std::vector<pid_t> threads;             // that run a download, by their kernel ids
};

HandOff handOff;

// Whether a thread of this process is gone. A detached thread cannot be joined, and the toolkit's
// code still runs in it when its object has been deleted; only the kernel knows when it has ended.
bool HasEnded(pid_t thread)
{
    return tgkill(getpid(), thread, 0) != 0 && errno == ESRCH;
}

// Returns the URL with its scheme in lower case, the only one in which wxURL finds it.
wxString WithPlainScheme(const wxString& url)
{
    const size_t end = url.find(':');
    return end == wxString::npos ? url : url.Left(end).Lower() + url.Mid(end);
}

// Writes all of a block; after a short write the next one has the reason.
bool WriteBlock(wxFile& file, const char* data, size_t size)
{
    const wxLogNull quiet; // the receiver tells of a failure
    while (size > 0)
    {
        const size_t written = file.Write(data, size);
        if (written == 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

// Creates the file, or empties the one there is; errno tells why not. In a directory for
// temporary files that all users share, what lies there is taken only if it is the user's own:
// somebody else may have put it there since the owner of the download looked. The kernel does the
// same where fs.protected_symlinks and fs.protected_regular are set.
bool CreateFile(wxFile& file, const wxString& path)
{
    const wxLogNull quiet; // the receiver tells of a failure
    constexpr mode_t SHARED = S_ISVTX | S_IWOTH;
    struct stat found;
    const std::string directory = wxFileName(path).GetPath().utf8_string(),
                      name = path.utf8_string();
    if (stat(directory.c_str(), &found) != 0 || (found.st_mode & SHARED) != SHARED)
        return file.Create(path, true);
    if (lstat(name.c_str(), &found) == 0 && S_ISLNK(found.st_mode) && found.st_uid == geteuid())
        return file.Create(path, true);

    file.Attach(
        open(name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, wxS_DEFAULT));
    const bool opened = file.IsOpened() && fstat(file.fd(), &found) == 0;
    if (opened && (!S_ISREG(found.st_mode) || found.st_uid != geteuid()))
        errno = EPERM;
    else if (opened && ftruncate(file.fd(), 0) == 0)
        return true;
    const int error = errno;
    file.Close();
    errno = error;
    return false;
}

} // namespace

// While it lives, hands what the toolkit logs on the download thread to the main thread's log as
// long as the receiver is set. The toolkit's own way from a thread to that log goes through the
// application object, which a cancelled thread may outlive.
class wxDownloadLog : public wxLog
{
public:
    explicit wxDownloadLog(const wxDownloadFile& download) : m_download(download)
    {
        wxLog::SetThreadActiveTarget(this);
    }

    ~wxDownloadLog() override { wxLog::SetThreadActiveTarget(nullptr); }

protected:
    void DoLogRecord(wxLogLevel level, const wxString& msg, const wxLogRecordInfo& info) override
    {
        const wxMutexLocker locker(handOff.lock);
        if (!m_download.m_parent)
            return;
        // The text has the system's error in it by now; the new record must not add it again.
        const wxLogRecordInfo plain(info.filename, info.line, info.func, info.component);
        wxLog::SetThreadActiveTarget(nullptr);
        wxLog::OnLog(level, msg, plain);
        wxLog::SetThreadActiveTarget(this);
    }

private:
    const wxDownloadFile& m_download;
};

// Takes leave of the threads that are still there when the main loop has ended.
class wxDownloadModule : public wxModule
{
public:
    wxDownloadModule()
    {
        // Modules are taken down before those they depend on.
        for (const char* used : {"wxThreadModule", "wxSocketModule", "wxURLModule",
                                 "wxTranslationsModule", "wxWebModule"})
            AddDependency(used);
    }

    bool OnInit() override { return true; }

    void OnExit() override
    {
        {
            const wxMutexLocker locker(handOff.lock);
            for (wxDownloadFile* download : handOff.downloads)
            {
                download->m_running = false;
                download->m_parent = nullptr;
            }
            handOff.receiverCleared.Broadcast();
        }

        const auto end = std::chrono::steady_clock::now() + EXIT_WAIT;
        while (!HaveThreadsEnded())
        {
            // Nothing is left to do but to free memory, which would pull it from under the thread.
            if (std::chrono::steady_clock::now() > end)
                std::_Exit(EXIT_SUCCESS);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    static bool HaveThreadsEnded()
    {
        const wxMutexLocker locker(handOff.lock);
        return handOff.downloads.empty() &&
               std::all_of(handOff.threads.begin(), handOff.threads.end(), HasEnded);
    }

    wxDECLARE_DYNAMIC_CLASS(wxDownloadModule);
};

wxIMPLEMENT_DYNAMIC_CLASS(wxDownloadModule, wxModule);

wxDownloadFile::wxDownloadFile(wxWindow* parent, wxString url, wxString localFile, bool notify,
                               wxLongLong_t notifyBytes, wxLongLong_t limit)
    : wxThread(wxTHREAD_DETACHED)
    , m_parent(parent)
    , m_url(url.Clone())
    , m_localFile(localFile.Clone())
    , m_limit(limit)
    , m_notify(notify)
    , m_notifyBytes(notifyBytes)
{
    // Makes sure that there is a log: without one, what a thread logs is dropped.
    wxLog::GetActiveTarget();

    if (Create() != wxTHREAD_NO_ERROR)
    {
        wxLogError("Can't create download thread!");
        return;
    }

    {
        const wxMutexLocker locker(handOff.lock);
        handOff.downloads.push_back(this);
    }
    m_started = Run() == wxTHREAD_NO_ERROR;
    if (!m_started)
        wxLogError("Can't start download thread!");
}

wxDownloadFile::~wxDownloadFile()
{
    const wxMutexLocker locker(handOff.lock);
    auto& downloads = handOff.downloads;
    downloads.erase(std::remove(downloads.begin(), downloads.end(), this), downloads.end());
}

void wxDownloadFile::CancelDownload()
{
    if (!m_started)
    {
        // Without a thread there is nobody else to delete the object.
        delete this;
        return;
    }

    const wxMutexLocker locker(handOff.lock);
    m_running = false;
    m_parent = nullptr;
    handOff.receiverCleared.Broadcast();
}

void wxDownloadFile::SetNotify(bool notify, wxLongLong_t notifyBytes)
{
    m_notify = notify;
    m_notifyBytes = notifyBytes;
}

wxThread::ExitCode wxDownloadFile::Entry()
{
    m_running = true;
    {
        const wxMutexLocker locker(handOff.lock);
        auto& threads = handOff.threads;
        threads.erase(std::remove_if(threads.begin(), threads.end(), HasEnded), threads.end());
        threads.push_back(gettid());
    }
    const wxDownloadLog log(*this);
    {
        wxDownloadEvent event(wxEVT_DOWNLOAD, static_cast<int>(GetId()));
        event.SetURL(m_url);
        event.SetDownloadedFile(m_localFile);

        wxURL url(WithPlainScheme(m_url));
        if (!Transfer(url, event))
        {
            event.SetFileSize(0);
            Post(event, wxDOWNLOAD_FAIL, 0);
        }
    }
    WaitUntilLetGo();
    return nullptr;
}

// Does everything but the failure report; returns whether it has posted the completion report.
bool wxDownloadFile::Transfer(wxURL& url, wxDownloadEvent& event)
{
    if (url.GetError() != wxURL_NOERR)
        return false;
    wxProtocol& protocol = url.GetProtocol();
    protocol.SetTimeout(TIMEOUT_SECONDS);
    if (wxWebProtocol* const web = dynamic_cast<wxWebProtocol*>(&protocol))
        web->SetRequest(m_url, [this] { return !m_running || TestDestroy(); });
    std::unique_ptr<wxInputStream> stream(url.GetInputStream());
    if (!stream)
        return false;

    m_fileSize = static_cast<wxLongLong_t>(stream->GetSize());
    if (m_fileSize != UNKNOWN_SIZE)
        event.SetFileSize(m_fileSize);

    wxFile file;
    const auto failed = [&event](int error) { return event.SetFileError(error), false; };
    if (!CreateFile(file, m_localFile))
        return failed(errno);

    wxLongLong_t total = 0;
    char block[BLOCK_SIZE];
    for (;;)
    {
        const int count = static_cast<int>(stream->Read(block, BLOCK_SIZE).LastRead());
        if (count < 1 || !m_running || TestDestroy())
            break;
        if (!WriteBlock(file, block, static_cast<size_t>(count)))
            return failed(file.GetLastError());
        total += count;
        if (m_limit >= 0 && total > m_limit)
            break;

        const wxLongLong_t interval = m_notifyBytes;
        if (m_notify && interval > 0 && total % interval == 0)
        {
            Post(event, wxDOWNLOAD_INPROGRESS, total);
            WaitForReceiver(event);
        }
    }

    if (!file.Close())
        return failed(file.GetLastError());
    stream.reset();
    Post(event, wxDOWNLOAD_COMPLETE, total);
    return true;
}

void wxDownloadFile::Post(wxDownloadEvent& event, int status, wxLongLong_t downloadedBytes)
{
    event.SetDownloadStatus(status);
    event.SetDownloadedBytes(downloadedBytes);

    const wxMutexLocker locker(handOff.lock);
    if (wxWindow* const parent = m_parent)
        parent->GetEventHandler()->AddPendingEvent(event);
}

// A line faster than the receiver would pile up reports without end, and the main loop, which
// delivers pending events until there are none, would see no more of the user.
void wxDownloadFile::WaitForReceiver(const wxDownloadEvent& event)
{
    if (event.GetCopyCount() < QUEUE_LIMIT)
        return;
    const wxMutexLocker locker(handOff.lock);
    while (m_parent && !TestDestroy() && event.GetCopyCount() > 0)
        handOff.receiverCleared.WaitTimeout(1);
}

void wxDownloadFile::WaitUntilLetGo()
{
    const wxMutexLocker locker(handOff.lock);
    while (m_parent)
        handOff.receiverCleared.Wait();
}
