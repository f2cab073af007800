// http, https and ftp for wxURL, on libcurl: the classes put themselves in front of the toolkit's
// own when the program starts.
//
// wxURL hands a protocol only the path of an address, so whoever opens a URL hands over the rest:
//
//     wxURL url(address);
//     if (wxWebProtocol* const web = dynamic_cast<wxWebProtocol*>(&url.GetProtocol()))
//         web->SetRequest(address, cancelled);
//     const std::unique_ptr<wxInputStream> stream(url.GetInputStream());
//
// An object and its stream belong to one thread, which may be any.

#pragma once

#include <wx/protocol/protocol.h>

#include <functional>

class wxWebProtocol : public wxProtocol
{
public:
    // Sets what GetInputStream() will fetch, and when it is to give up. To be called before.
    //
    // address    the whole URL
    // cancelled  asked at least every 50 milliseconds, on the thread that opens and reads the
    //            stream, and for as long as the stream lives; once it returns true, the call under
    //            way ends
    void SetRequest(const wxString& address, std::function<bool()> cancelled);

    // Returns a stream of the body of a successful answer, to be deleted by the caller, or null.
    // SetTimeout() bounds opening it, and then every silence. See WebTransfer for the rest.
    wxInputStream* GetInputStream(const wxString& path) override;

    // Unused; required by wxProtocol.
    wxString GetContentType() const override { return wxString(); }
    bool Abort() override { return false; }

private:
    wxString m_address;
    std::function<bool()> m_cancelled = [] { return false; };

    wxDECLARE_ABSTRACT_CLASS(wxWebProtocol);
};
