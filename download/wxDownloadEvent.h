// The report by which a download thread speaks to the window that started it.
//
// An event is filled on the download thread and posted with wxEvtHandler::AddPendingEvent(), which
// queues a copy made by Clone(); the receiver's handler sees that copy on the main thread. A copy
// shares no storage with its original, so no event is ever touched by two threads.

#pragma once

#include <wx/event.h>

#include <memory>

constexpr int wxDOWNLOAD_NONE = -2;      // a new event; never posted
constexpr int wxDOWNLOAD_FAIL = -1;      // the download failed; nothing follows
constexpr int wxDOWNLOAD_COMPLETE = 1;   // the transfer has ended, the local file is closed
constexpr int wxDOWNLOAD_INPROGRESS = 2; // a progress report during the transfer

class wxDownloadEvent : public wxNotifyEvent
{
public:
    wxDownloadEvent(wxEventType commandType = wxEVT_NULL, int id = 0);
    wxDownloadEvent(const wxDownloadEvent& event) = default;

    // Returns a new copy, owned by the caller.
    wxEvent* Clone() const override { return new wxDownloadEvent(*this); }

    // One of the wxDOWNLOAD_ constants; a receiver ignores any other value.
    int GetDownloadStatus() const { return m_downloadStatus; }
    void SetDownloadStatus(int status) { m_downloadStatus = status; }

    // The URL being fetched.
    wxString GetURL() const { return m_url; }
    void SetURL(const wxString& url) { m_url = url.Clone(); }

    // The local path being written.
    wxString GetDownloadedFile() const { return m_downloadedFile; }
    void SetDownloadedFile(const wxString& path) { m_downloadedFile = path.Clone(); }

    // Bytes received so far; 0 in a failure report.
    wxLongLong_t GetDownloadedBytes() const { return m_downloadedBytes; }
    void SetDownloadedBytes(wxLongLong_t bytes) { m_downloadedBytes = bytes; }

    // Bytes in the whole resource; 0 when that is not known, and in a failure report.
    wxLongLong_t GetFileSize() const { return m_fileSize; }
    void SetFileSize(wxLongLong_t bytes) { m_fileSize = bytes; }

    // In a failure report, the errno(3) of what kept the local file from being created or written;
    // 0 when the URL could not be opened.
    int GetFileError() const { return m_fileError; }
    void SetFileError(int error) { m_fileError = error; }

    // How many copies of this event, and copies of those, there are; posted reports that were not
    // handled yet, for the thread that posts them. An estimate while another thread deletes some.
    long GetCopyCount() const { return m_copies.use_count() - 1; }

private:
    int m_downloadStatus = wxDOWNLOAD_NONE;
    wxString m_url;
    wxString m_downloadedFile;
    wxLongLong_t m_downloadedBytes = 0;
    wxLongLong_t m_fileSize = 0;
    int m_fileError = 0;
    std::shared_ptr<const void> m_copies = std::make_shared<char>(); // counts itself

    wxDECLARE_DYNAMIC_CLASS_NO_ASSIGN(wxDownloadEvent);
};

wxDECLARE_EVENT(wxEVT_DOWNLOAD, wxDownloadEvent);

// A member function of the receiver that takes a download event and returns nothing.
typedef void (wxEvtHandler::*wxDownloadEventFunction)(wxDownloadEvent&);

#define wxDownloadEventHandler(func) wxEVENT_HANDLER_CAST(wxDownloadEventFunction, func)

// An event-table entry for download events of every id.
#define EVT_DOWNLOAD(func)                                                                         \
    wxDECLARE_EVENT_TABLE_ENTRY(wxEVT_DOWNLOAD, wxID_ANY, wxID_ANY, wxDownloadEventHandler(func),  \
                                nullptr),
