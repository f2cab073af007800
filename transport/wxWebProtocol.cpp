#include "transport/wxWebProtocol.h"

#include "transport/WebTransfer.h"

#include <wx/url.h>

wxIMPLEMENT_ABSTRACT_CLASS(wxWebProtocol, wxProtocol);

void wxWebProtocol::SetRequest(const wxString& address, std::function<bool()> cancelled)
{
    m_address = address.Clone();
    m_cancelled = std::move(cancelled);
}

wxInputStream* wxWebProtocol::GetInputStream(const wxString&)
{
    auto transfer =
        std::make_unique<WebTransfer>(std::chrono::seconds(m_uiDefaultTimeout), m_cancelled);
    return transfer->Open(m_address.utf8_string()) ? transfer.release() : nullptr;
}

// Each scheme has a class, because wxURL does not tell a protocol its scheme. None of them needs a
// host from wxURL, which would look it up itself, blocking and for IPv4 only.
#define WEB_PROTOCOL(name, scheme, port)                                                           \
    class name : public wxWebProtocol                                                              \
    {                                                                                              \
        wxDECLARE_DYNAMIC_CLASS(name);                                                             \
        DECLARE_PROTOCOL(name)                                                                     \
    };                                                                                             \
    wxIMPLEMENT_DYNAMIC_CLASS(name, wxWebProtocol);                                                \
    IMPLEMENT_PROTOCOL(name, wxT(scheme), wxT(port), false)

WEB_PROTOCOL(wxWebHTTPProtocol, "http", "80")
WEB_PROTOCOL(wxWebHTTPSProtocol, "https", "443")
WEB_PROTOCOL(wxWebFTPProtocol, "ftp", "21")
