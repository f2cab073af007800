#include "transport/wxWebProtocol.h"

#include "transport/WebTransfer.h"

#include <wx/module.h>
#include <wx/stream.h>
#include <wx/url.h>
#include <wx/utils.h>

#include <memory>

// wxURL tells a protocol neither its scheme nor its host: one class each, and SetRequest().
class wxWebHTTPProtocol : public wxWebProtocol
{
    wxDECLARE_DYNAMIC_CLASS_NO_COPY(wxWebHTTPProtocol);
    DECLARE_PROTOCOL(wxWebHTTPProtocol)

public:
    wxWebHTTPProtocol() = default;
};

class wxWebHTTPSProtocol : public wxWebProtocol
{
    wxDECLARE_DYNAMIC_CLASS_NO_COPY(wxWebHTTPSProtocol);
    DECLARE_PROTOCOL(wxWebHTTPSProtocol)

public:
    wxWebHTTPSProtocol() = default;
};

wxIMPLEMENT_ABSTRACT_CLASS(wxWebProtocol, wxProtocol);
wxIMPLEMENT_DYNAMIC_CLASS(wxWebHTTPProtocol, wxWebProtocol);
wxIMPLEMENT_DYNAMIC_CLASS(wxWebHTTPSProtocol, wxWebProtocol);

// Without a host of wxURL's: it would look it up itself, blocking and for IPv4 only.
IMPLEMENT_PROTOCOL(wxWebHTTPProtocol, wxT("http"), wxT("80"), false)
IMPLEMENT_PROTOCOL(wxWebHTTPSProtocol, wxT("https"), wxT("443"), false)

namespace
{

class WebStream : public wxInputStream
{
public:
    explicit WebStream(std::unique_ptr<WebTransfer> transfer) : m_transfer(std::move(transfer)) {}

    size_t GetSize() const override { return static_cast<size_t>(m_transfer->GetSize()); }

protected:
    size_t OnSysRead(void* buffer, size_t size) override
    {
        const size_t count = m_transfer->Read(static_cast<char*>(buffer), size);
        m_lasterror = count > 0 ? wxSTREAM_NO_ERROR : wxSTREAM_EOF;
        return count;
    }

private:
    const std::unique_ptr<WebTransfer> m_transfer;
};

bool HasEnv(const wxString& name)
{
    wxString value;
    return wxGetEnv(name, &value) && !value.empty();
}

// wxURL takes HTTP_PROXY for a reason to speak its own http to that proxy, whatever the scheme. It
// is put where libcurl finds it, behind the variables that libcurl itself knows.
void AdoptProxy()
{
    wxString proxy;
    if (!wxGetEnv("HTTP_PROXY", &proxy))
        return;
    wxUnsetEnv("HTTP_PROXY");
    if (!HasEnv("http_proxy"))
        wxSetEnv("http_proxy", proxy);
    if (!HasEnv("https_proxy") && !HasEnv("HTTPS_PROXY") && !HasEnv("all_proxy") &&
        !HasEnv("ALL_PROXY"))
        wxSetEnv("https_proxy", proxy);
}

} // namespace

// libcurl lives from the toolkit's start to its end. Whoever uses it from a thread has a module of
// their own that depends on this one and ends the thread first.
class wxWebModule : public wxModule
{
public:
    bool OnInit() override
    {
        AdoptProxy();
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }

    void OnExit() override { curl_global_cleanup(); }

private:
    wxDECLARE_DYNAMIC_CLASS(wxWebModule);
};

wxIMPLEMENT_DYNAMIC_CLASS(wxWebModule, wxModule);

void wxWebProtocol::SetRequest(const wxString& address, std::function<bool()> cancelled)
{
    m_address = address.Clone();
    m_cancelled = std::move(cancelled);
}

wxInputStream* wxWebProtocol::GetInputStream(const wxString&)
{
    auto transfer =
        std::make_unique<WebTransfer>(std::chrono::seconds(m_uiDefaultTimeout), m_cancelled);
    if (!transfer->Open(m_address.utf8_string()))
    {
        m_lastError = wxPROTO_CONNERR;
        return nullptr;
    }
    m_lastError = wxPROTO_NOERR;
    return new WebStream(std::move(transfer));
}
