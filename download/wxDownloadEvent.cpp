#include "download/wxDownloadEvent.h"

wxDEFINE_EVENT(wxEVT_DOWNLOAD, wxDownloadEvent);

wxIMPLEMENT_DYNAMIC_CLASS(wxDownloadEvent, wxNotifyEvent);

wxDownloadEvent::wxDownloadEvent(wxEventType commandType, int id) : wxNotifyEvent(commandType, id)
{
}

wxDownloadEvent::wxDownloadEvent(const wxDownloadEvent& event)
    : wxNotifyEvent(event)
    , m_downloadStatus(event.m_downloadStatus)
    , m_url(event.m_url.Clone())
    , m_downloadedFile(event.m_downloadedFile.Clone())
    , m_downloadedBytes(event.m_downloadedBytes)
    , m_fileSize(event.m_fileSize)
    , m_fileError(event.m_fileError)
    , m_copies(event.m_copies)
{
}
