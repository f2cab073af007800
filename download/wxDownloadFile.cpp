#include "download/wxDownloadFile.h"

#include "download/wxDownloadEvent.h"
#include "transport/wxWebProtocol.h"

#include <wx/filename.h>
#include <wx/log.h>
#include <wx/module.h>
#include <wx/stream.h>
#include <wx/url.h>
#include <wx/window.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr wxUint32 TIMEOUT_SECONDS = 100; // how long a server may be silent
constexpr size_t BLOCK_SIZE = 4096; // of reads and writes; a progress interval is a multiple of it

// How many progress reports may wait to be handled, and how long one may be held back; the window
// does not draw more often.
constexpr size_t QUEUE_LIMIT = 256;
constexpr std::chrono::milliseconds FRAME_TIME(16);

// How long the end of the process waits for threads whose reads cannot be interrupted.
constexpr std::chrono::milliseconds EXIT_WAIT(500);

// What the main thread and the download threads share. The lock is held only for a post or a log
// message. Unlike a lock inside the object, it outlives every thread that waits for it.
struct HandOff
{
    wxMutex lock;
    wxCondition letGo{lock};
    std::atomic<bool> ending{false}; // the main loop has ended
    std::atomic<int> threads{0};     // those that have not ended
};

HandOff& handOff = *new HandOff; // never destroyed

// A thread still runs the toolkit's code after its object has been deleted, and then destructors of
// its data, such as libcrypto's. This one sets its data anew, to be called again after all others.
pthread_key_t threadEnd;
void OnThreadEnd(void* data)
{
    if (data == &handOff)
        --handOff.threads;
    else
        pthread_setspecific(threadEnd, &handOff);
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Opens the file for writing, or creates it; does not truncate it. On failure returns null and sets
// errno. In a folder where others can write, one of them may have put something else there. So only
// a regular file without another hard link is accepted, of the user or of root, who owns every file
// of some file systems. A file that was opened as exclusive cannot be opened so again (EBUSY).
File OpenFile(const wxFile& folder, const wxString& name, bool exclusive, struct stat& opened)
{
    struct stat found;
    const bool shared =
        fstat(folder.fd(), &found) == 0 && ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0 ||
                                            (found.st_uid != geteuid() && found.st_uid != 0));
    // Without O_NONBLOCK, a pipe that nobody reads would block.
    const int flags =
        O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (shared ? O_NOFOLLOW : 0);
    const int descriptor = openat(folder.fd(), name.fn_str(), flags, 0666);
    File file(descriptor < 0 ? nullptr : fdopen(descriptor, "w"), &std::fclose);
    const bool unsafe = file && (fstat(descriptor, &opened) != 0 ||
                                 (shared && (!S_ISREG(opened.st_mode) || opened.st_nlink != 1 ||
                                             (opened.st_uid != geteuid() && opened.st_uid != 0))));
    // Two runs that write to one file would mix their bytes. Not every file can be locked.
    struct flock lock = {F_WRLCK, SEEK_SET, 0, 0, 0};
    const bool locked = file && exclusive && fcntl(descriptor, F_OFD_SETLK, &lock) != 0;
    if (unsafe || (locked && errno == EAGAIN))
    {
        file.reset();
        errno = unsafe ? EPERM : EBUSY;
    }
    return file;
}

} // namespace

// Sends what the toolkit logs on the download thread to the main thread's log, until
// CancelDownload() is called; at verbose level only, because a server may have chosen the text. The
// toolkit's own way uses the application object, which may be gone before the thread ends.
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
        if (!m_download.GetReceiver() || !wxLog::GetVerbose())
            return;
        // The text already contains the system's error; the new record must not add it again.
        wxLogRecordInfo plain(info.filename, info.line, info.func, info.component);
        plain.timestampMS = info.timestampMS;
        wxLog::SetThreadActiveTarget(nullptr);
        wxLog::OnLog(level, msg, plain);
        wxLog::SetThreadActiveTarget(this);
    }

private:
    const wxDownloadFile& m_download;
};

// Ends the threads that still run when the main loop has ended.
class wxDownloadModule : public wxModule
{
public:
    wxDownloadModule()
    {
        // A module's OnExit() is called before those of the modules that it depends on.
        for (const char* used :
             {"wxThreadModule", "wxSocketModule", "wxURLModule", "wxTranslationsModule"})
            AddDependency(used);
    }

    bool OnInit() override { return pthread_key_create(&threadEnd, &OnThreadEnd) == 0; }

    void OnExit() override
    {
        {
            const wxMutexLocker locker(handOff.lock);
            handOff.ending = true;
            handOff.letGo.Broadcast();
        }
        for (const auto end = Clock::now() + EXIT_WAIT; handOff.threads > 0;)
        {
            // Only freeing memory remains, and the thread still uses it.
            if (Clock::now() > end)
                std::_Exit(EXIT_SUCCESS);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    wxDECLARE_DYNAMIC_CLASS(wxDownloadModule);
};

wxIMPLEMENT_DYNAMIC_CLASS(wxDownloadModule, wxModule);

wxDownloadFile::wxDownloadFile(wxWindow* parent, wxString url, wxString localFile, bool notify,
                               wxLongLong_t notifyBytes, wxLongLong_t limit)
    : wxThread(wxTHREAD_DETACHED)
    , m_parent(parent)
    , m_url(url.Clone())
    , m_localFile(localFile.Clone())
    , m_folder(open(wxPathOnly(m_localFile).fn_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
    , m_folderError(errno)
    , m_limit(limit)
    , m_notify(notify)
    , m_notifyBytes(notifyBytes)
{
    // This creates the log if there is none; otherwise messages from a thread would be dropped.
    wxLog::GetActiveTarget();

    ++handOff.threads;
    const bool created = Create() == wxTHREAD_NO_ERROR;
    m_started = created && Run() == wxTHREAD_NO_ERROR;
    if (m_started)
        return;
    --handOff.threads;
    wxLogError(created ? "Can't start download thread!" : "Can't create download thread!");
}

void wxDownloadFile::CancelDownload()
{
    if (!m_started)
    {
        delete this; // no thread runs that would do it
        return;
    }

    const wxMutexLocker locker(handOff.lock);
    m_running = false;
    m_parent = nullptr;
    handOff.letGo.Broadcast();
}

wxWindow* wxDownloadFile::GetReceiver() const
{
    return handOff.ending ? nullptr : m_parent.load();
}

wxThread::ExitCode wxDownloadFile::Entry()
{
    m_running = true;
    pthread_setspecific(threadEnd, &threadEnd);
    const wxDownloadLog log(*this);
    {
        wxDownloadEvent event(wxEVT_DOWNLOAD, static_cast<int>(GetId()));
        event.SetURL(m_url);
        event.SetDownloadedFile(m_localFile);

        // wxURL finds a scheme only in lower case.
        wxURL url(m_url.BeforeFirst(':').Lower() + m_url.Mid(m_url.find(':')));
        const bool complete = Transfer(url, event);
        if (!complete)
            event.SetFileSize(0);
        Post(event, complete ? wxDOWNLOAD_COMPLETE : wxDOWNLOAD_FAIL,
             complete ? event.GetDownloadedBytes() : 0);
    }
    const wxMutexLocker locker(handOff.lock);
    while (GetReceiver())
        handOff.letGo.Wait();
    return nullptr;
}

// Downloads the file and posts the progress reports. Returns whether it is complete.
bool wxDownloadFile::Transfer(wxURL& url, wxDownloadEvent& event)
{
    if (url.GetError() != wxURL_NOERR)
        return false;
    wxProtocol& protocol = url.GetProtocol();
    protocol.SetTimeout(TIMEOUT_SECONDS);
    if (wxWebProtocol* const web = dynamic_cast<wxWebProtocol*>(&protocol))
        web->SetRequest(m_url, [this] { return !IsWanted(); });
    std::unique_ptr<wxInputStream> stream(url.GetInputStream());
    if (!stream)
        return false;

    m_fileSize = static_cast<wxLongLong_t>(stream->GetSize());
    event.SetFileSize(m_fileSize < 0 ? 0 : m_fileSize.load());
    event.SetFileError(Save(*stream, event));
    return event.GetFileError() == 0;
}

// Writes the stream to the local file and posts progress reports. Stores the number of bytes
// written in the event. Returns 0, or why it failed, as errno(3).
int wxDownloadFile::Save(wxInputStream& stream, wxDownloadEvent& event)
{
    struct stat opened, found;
    File file = OpenFile(m_folder, m_localFile.AfterLast('/'), m_limit < 0, opened);
    // After CancelDownload() the path may be another run's. Closing a truncated file can be slow.
    if (!file || (IsWanted() && opened.st_size > 0 && ftruncate(fileno(file.get()), 0) != 0))
        return m_folder.IsOpened() ? errno : m_folderError;

    // Each post wakes the main thread, so reports are held back while more can be read at once.
    std::vector<wxLongLong_t> held;
    Clock::time_point posted;
    const auto postHeld = [&]
    {
        for (const wxLongLong_t bytes : held)
            Post(event, wxDOWNLOAD_INPROGRESS, bytes);
        held.clear();
        posted = Clock::now();
        // The main loop handles all pending events first, so it would no longer react to the user
        // if a fast line piled up reports.
        const bool tooMany = event.GetCopyCount() >= static_cast<long>(QUEUE_LIMIT);
        while (tooMany && IsWanted() && event.GetCopyCount() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };

    int error = 0;
    wxLongLong_t total = 0;
    char block[BLOCK_SIZE];
    while (m_limit < 0 || total <= m_limit)
    {
        stream.ReadAll(block, BLOCK_SIZE);
        const size_t count = stream.LastRead();
        if (count == 0 || !IsWanted())
            break;
        error = std::fwrite(block, 1, count, file.get()) == count ? 0 : errno;
        if (error != 0)
            break;
        total += static_cast<wxLongLong_t>(count);

        const wxLongLong_t interval = m_notifyBytes;
        if (m_notify && interval > 0 && total % interval == 0)
            held.push_back(total);
        if (!held.empty() &&
            (held.size() == QUEUE_LIMIT || !stream.CanRead() || Clock::now() - posted > FRAME_TIME))
            postHeld();
    }
    postHeld();
    // Somebody may have removed or replaced the file meanwhile.
    const bool there = stat(m_localFile.fn_str(), &found) == 0 && found.st_ino == opened.st_ino &&
                       found.st_dev == opened.st_dev;
    if ((std::fclose(file.release()) != 0 || !there) && error == 0)
        error = there ? errno : ENOENT;
    event.SetDownloadedBytes(total);
    const bool cut = total < m_fileSize || stream.GetLastError() == wxSTREAM_READ_ERROR;
    event.SetCut(cut && error == 0);
    return error;
}

void wxDownloadFile::Post(wxDownloadEvent& event, int status, wxLongLong_t downloadedBytes)
{
    event.SetDownloadStatus(status);
    event.SetDownloadedBytes(downloadedBytes);

    const wxMutexLocker locker(handOff.lock);
    if (wxWindow* const parent = GetReceiver())
        parent->GetEventHandler()->AddPendingEvent(event);
}
