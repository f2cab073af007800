// A detached thread that copies one URL into one local file and reports to one window.
//
// Reports are wxDownloadEvents, posted to the receiver's event handler in this order: any number of
// wxDOWNLOAD_INPROGRESS, then exactly one wxDOWNLOAD_COMPLETE or wxDOWNLOAD_FAIL. Progress reports
// are held while more can be read at once, for 16 ms at most. When more of them wait than the
// receiver gets done, the transfer pauses until they are handled.
//
// The hand-off. The object is made with new and belongs to itself; its owner keeps a plain pointer
// and calls CancelDownload() exactly once, either to stop the download or, when the last report has
// arrived, to let go of it. Until then the object stays alive, waiting after its last report if
// need be, so the pointer is good whenever the owner holds it. Afterwards the pointer must not be
// used any more, and nothing more is sent to the receiver, neither an event nor a log message:
// posting and cancelling exclude each other. What is in the receiver's queue by then is its own to
// ignore.
//
// The end of the process. A thread that is still in a transfer when the main loop has ended is told
// to stop, and is waited for, before any of the toolkit's modules it uses is taken down; one that
// its transport does not let go within half a second ends with the process there and then.

#pragma once

#include <wx/string.h>
#include <wx/thread.h>

#include <atomic>

class wxDownloadEvent;
class wxInputStream;
class wxURL;
class wxWindow;

class wxDownloadFile : public wxThread
{
public:
    // Creates and starts the thread. Call on the main thread, after wxSocketBase::Initialize().
    //
    // parent       the receiver; not null, not owned, alive until CancelDownload() has been called
    // url          what to fetch, any URL that wxURL can open
    // localFile    where to write; an existing file is overwritten once the URL has been opened
    // notify       whether progress reports are posted
    // notifyBytes  the progress interval: a report comes each time the bytes received are a whole
    //              multiple of it; with an interval that is not positive none comes
    // limit        how many bytes are wanted at most, -1 for all. A transfer that goes beyond ends
    //              as at the end of the data, with at most a block of 4096 bytes more
    //
    // When the thread cannot be created or started, the reason goes to the toolkit's error log and
    // no report will ever come; CancelDownload() is owed all the same.
    wxDownloadFile(wxWindow* parent, wxString url, wxString localFile, bool notify,
                   wxLongLong_t notifyBytes, wxLongLong_t limit = -1);

    // Stops the download and lets go of the object. Call on the main thread. Returns at once,
    // without waiting for the transfer: the thread sees the stop after the read under way, closes
    // the local file, which keeps the blocks written so far, and deletes itself.
    void CancelDownload();

    // The size that the input stream reported, in bytes: 0 before the URL has been opened, -1 when
    // the size is not known. May be called on any thread.
    wxLongLong_t GetFileSize() const { return m_fileSize; }

    // Changes the progress settings from the next block on. May be called on any thread.
    void SetNotify(bool notify, wxLongLong_t notifyBytes)
    {
        m_notify = notify;
        m_notifyBytes = notifyBytes;
    }

    void OnExit() override {}

protected:
    ~wxDownloadFile() override;

    ExitCode Entry() override;

private:
    friend class wxDownloadLog;
    friend class wxDownloadModule;

    wxWindow* GetReceiver() const; // null when nothing more is to be posted
    bool IsWanted() { return GetReceiver() && m_running && !TestDestroy(); }
    bool Transfer(wxURL& url, wxDownloadEvent& event);
    int Save(wxInputStream& stream, wxDownloadEvent& event);
    void Post(wxDownloadEvent& event, int status, wxLongLong_t downloadedBytes);

    std::atomic<wxWindow*> m_parent; // null once the owner has let go
    const wxString m_url;
    const wxString m_localFile;
    const wxLongLong_t m_limit;
    std::atomic<bool> m_running{true};
    std::atomic<wxLongLong_t> m_fileSize{0};
    std::atomic<bool> m_notify;
    std::atomic<wxLongLong_t> m_notifyBytes;
    bool m_started = false; // used on the main thread only

    wxDECLARE_NO_COPY_CLASS(wxDownloadFile);
};
