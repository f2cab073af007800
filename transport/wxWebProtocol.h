// Provides http, https and ftp for wxURL, on libcurl. When the program starts, these classes
// register themselves; wxURL then finds them before the toolkit's own.
//
// wxURL gives a protocol only the path of an address, so the caller has to pass the whole address
// to the wxWebProtocol from wxURL::GetProtocol(). One thread uses an object and its stream.

#pragma once

#include <wx/protocol/protocol.h>

#include <functional>

class wxWebProtocol : public wxProtocol
{
public:
    // Sets what GetInputStream() will fetch. Call it first.
    //
    // address    the whole URL
    // cancelled  the same as for WebTransfer, during each call to GetInputStream() or its stream.
    //            What it uses must exist as long as the stream
    void SetRequest(const wxString& address, std::function<bool()> cancelled);

    // Returns a WebTransfer, which the caller deletes, or null if WebTransfer::Open() has failed.
    // SetTimeout() sets how long nothing may arrive.
    wxInputStream* GetInputStream(const wxString& path) override;

    // Unused; required by wxProtocol.
    wxString GetContentType() const override { return wxString(); }
    bool Abort() override { return false; }

private:
    wxString m_address;
    std::function<bool()> m_cancelled = [] { return false; };

    wxDECLARE_ABSTRACT_CLASS(wxWebProtocol);
};
