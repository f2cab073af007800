// Provides http, https and ftp for wxURL, on libcurl. When the program starts, these classes
// register themselves before the toolkit's own.
//
// wxURL gives a protocol only the path of an address, so the caller has to pass the whole address:
//
//     wxURL url(address);
//     if (wxWebProtocol* const web = dynamic_cast<wxWebProtocol*>(&url.GetProtocol()))
//         web->SetRequest(address, cancelled);
//     const std::unique_ptr<wxInputStream> stream(url.GetInputStream());
//
// An object and its stream belong to one thread; this can be any thread.

#pragma once

#include <wx/protocol/protocol.h>

#include <functional>

class wxWebProtocol : public wxProtocol
{
public:
    // Sets what GetInputStream() will fetch. Call it first.
    //
    // address    the whole URL
    // cancelled  called at least every 50 milliseconds while a call to GetInputStream() or to its
    // stream
    //            lasts, on the same thread; once it returns true, that call ends. It must stay
    //            valid as long as the stream exists
    void SetRequest(const wxString& address, std::function<bool()> cancelled);

    // Returns a stream of the body if the answer is a success, otherwise null. The caller deletes
    // the stream. SetTimeout() sets how long nothing may arrive. WebTransfer has the rest of the
    // contract.
    wxInputStream* GetInputStream(const wxString& path) override;

    // Unused; required by wxProtocol.
    wxString GetContentType() const override { return wxString(); }
    bool Abort() override { return false; }

private:
    wxString m_address;
    std::function<bool()> m_cancelled = [] { return false; };

    wxDECLARE_ABSTRACT_CLASS(wxWebProtocol);
};
