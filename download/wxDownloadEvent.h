// A report from a download thread to the window that started it.
//
// The download thread posts an event with wxEvtHandler::AddPendingEvent(), which queues a copy made
// by Clone(). The receiver gets that copy on the main thread; it shares no texts with the original.

#pragma once

#include <wx/event.h>

#include <memory>

// The kinds of events. A failure means that the URL could not be opened, or that the local file
// could not be created or written; progress reports may have come before it. A transfer that ends
// early for another reason is reported as complete, and IsCut() returns true.
constexpr int wxDOWNLOAD_NONE = -2;    // a new event; never posted
constexpr int wxDOWNLOAD_FAIL = -1;    // the download has failed; the last event
constexpr int wxDOWNLOAD_COMPLETE = 1; // the transfer has ended, the file is closed; the last event
constexpr int wxDOWNLOAD_INPROGRESS = 2; // a progress report during the transfer

class wxDownloadEvent : public wxNotifyEvent
{
public:
    wxDownloadEvent(wxEventType commandType = wxEVT_NULL, int id = 0)
        : wxNotifyEvent(commandType, id)
    {
    }
    wxDownloadEvent(const wxDownloadEvent& event) = default;

    // Returns a new copy, owned by the caller.
    wxEvent* Clone() const override { return new wxDownloadEvent(*this); }

    // One of the wxDOWNLOAD_ constants; receivers ignore any other value.
    int GetDownloadStatus() const { return m_downloadStatus; }
    void SetDownloadStatus(int status) { m_downloadStatus = status; }

    // The URL that is fetched.
    wxString GetURL() const { return m_url; }
    void SetURL(const wxString& url) { m_url = url.Clone(); }

    // The path of the local file.
    wxString GetDownloadedFile() const { return m_downloadedFile; }
    void SetDownloadedFile(const wxString& path) { m_downloadedFile = path.Clone(); }

    // Bytes written to the local file so far; 0 in a failure report.
    wxLongLong_t GetDownloadedBytes() const { return m_downloadedBytes; }
    void SetDownloadedBytes(wxLongLong_t bytes) { m_downloadedBytes = bytes; }

    // Size of the whole resource in bytes; 0 if it is not known, and in a failure report.
    wxLongLong_t GetFileSize() const { return m_fileSize; }
    void SetFileSize(wxLongLong_t bytes) { m_fileSize = bytes; }

    // In a failure report: why the local file could not be created or written, as errno(3); 0 if
    // the URL could not be opened. Otherwise 0.
    int GetFileError() const { return m_fileError; }
    void SetFileError(int error) { m_fileError = error; }

    // In a completion report: whether some of the resource is missing, even if its size is unknown.
    bool IsCut() const { return m_cut; }
    void SetCut(bool cut) { m_cut = cut; }

    // Returns how many other copies of this event exist. For the thread that posts them, these are
    // the reports that were not handled yet. An estimate while another thread deletes some.
    long GetCopyCount() const { return m_copies.use_count() - 1; }

private:
    int m_downloadStatus = wxDOWNLOAD_NONE;
    wxString m_url, m_downloadedFile;
    wxLongLong_t m_downloadedBytes = 0, m_fileSize = 0;
    int m_fileError = 0;
    bool m_cut = false;
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
