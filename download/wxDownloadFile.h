// A detached thread that copies one URL into one local file and reports to one window.
//
// Reports. The thread posts wxDownloadEvents to the receiver's event handler: any number of
// wxDOWNLOAD_INPROGRESS, then exactly one wxDOWNLOAD_COMPLETE or wxDOWNLOAD_FAIL. It holds back
// progress reports for at most 16 ms while more can be read at once. If the receiver does not keep
// up, the transfer pauses until the waiting reports have been handled.
//
// Ownership. The object is created with new and deletes itself, but not before its owner has called
// CancelDownload(), exactly once: to stop the download, or after the last report has arrived. After
// that call the thread posts no event and no log message. Events that are already in the receiver's
// queue still arrive; the receiver has to ignore them.
//
// The end of the process. When the main loop has ended, a thread that is still in a transfer is
// told to stop. The process waits for it at most half a second, and then ends at once.

#pragma once

#include <wx/file.h>
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
    // Creates and starts the thread. Call it on the main thread, after wxSocketBase::Initialize().
    // It opens no box. If it fails, the toolkit's error log says why, and no report comes;
    // CancelDownload() must be called all the same.
    //
    // parent       the receiver; not null, not owned, alive until CancelDownload() has been called
    // url          the URL to fetch; any that wxURL can open
    // localFile    the absolute path to write to. Once the URL has been opened, an existing file is
    //              overwritten. In a folder where others can write, it must be a regular file of
    //              the user or root without another hard link; otherwise EPERM or ELOOP is reported
    // notify       whether progress reports are posted
    // notifyBytes  the progress interval: a report follows each block of 4096 bytes that makes the
    //              number of received bytes a multiple of it; none if it is not positive
    // limit        the largest number of bytes that is wanted: the transfer ends at most 4096 bytes
    //              beyond it. -1: no limit, and no second such download to the file (EBUSY)
    wxDownloadFile(wxWindow* parent, wxString url, wxString localFile, bool notify,
                   wxLongLong_t notifyBytes, wxLongLong_t limit = -1);

    // Stops the download and gives up the object, without waiting for the transfer. Call it on the
    // main thread. When the current read has ended, the thread closes the local file, which keeps
    // what has been written, and deletes the object.
    void CancelDownload();

    // Returns the size of the resource in bytes: 0 before the URL has been opened, -1 if the size
    // is not known. May be called on any thread.
    wxLongLong_t GetFileSize() const { return m_fileSize; }

    // Changes the progress settings from the next block on. May be called on any thread.
    void SetNotify(bool notify, wxLongLong_t notifyBytes)
    {
        m_notify = notify;
        m_notifyBytes = notifyBytes;
    }

    void OnExit() override {}

protected:
    ~wxDownloadFile() override = default;

    ExitCode Entry() override;

private:
    friend class wxDownloadLog;

    wxWindow* GetReceiver() const; // null if nothing more must be posted
    bool IsWanted() { return GetReceiver() && m_running && !TestDestroy(); }
    bool Transfer(wxURL& url, wxDownloadEvent& event);
    int Save(wxInputStream& stream, wxDownloadEvent& event);
    void Post(wxDownloadEvent& event, int status, wxLongLong_t downloadedBytes);

    std::atomic<wxWindow*> m_parent; // null after CancelDownload()
    const wxString m_url, m_localFile;
    const wxFile m_folder;   // somebody may put another one in its place
    const int m_folderError; // errno(3), if it is not open
    const wxLongLong_t m_limit;
    std::atomic<bool> m_running{true};
    std::atomic<wxLongLong_t> m_fileSize{0};
    std::atomic<bool> m_notify;
    std::atomic<wxLongLong_t> m_notifyBytes;
    bool m_started = false; // used on the main thread only

    wxDECLARE_NO_COPY_CLASS(wxDownloadFile);
};
