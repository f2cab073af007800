#include "download/wxDownloadEvent.h"

wxDEFINE_EVENT(wxEVT_DOWNLOAD, wxDownloadEvent);

wxIMPLEMENT_DYNAMIC_CLASS(wxDownloadEvent, wxNotifyEvent);
