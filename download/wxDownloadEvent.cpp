#include "download/wxDownloadEvent.h"

wxDEFINE_EVENT(wxEVT_DOWNLOAD, wxDownloadEvent);

wxIMPLEMENT_DYNAMIC_CLASS(wxDownloadEvent, wxNotifyEvent);

wxDownloadEvent::wxDownloadEvent(wxEventType commandType, int id) : wxNotifyEvent(commandType, id)
{
}
