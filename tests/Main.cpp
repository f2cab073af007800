#include <gtest/gtest.h>
#include <wx/evtloop.h>
#include <wx/init.h>
#include <wx/socket.h>
#include <wx/wx.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    setenv("OPENSSL_CONF", OPENSSL_CONFIGURATION, 1);
    testing::InitGoogleTest(&argc, argv);
    wxSetAssertHandler([](const wxString& file, int line, const wxString&, const wxString& what, const wxString&)
                       { wxMessageOutputStderr().Printf("%s(%d): %s", file, line, what); });
    wxApp::SetInstance(new wxApp);
    const wxInitializer toolkit(argc, argv);
    // The toolkit creates some of its locks on their first use, which must not happen on two threads at once.
    wxLogVerbose("starting");
    if (!toolkit || !wxSocketBase::Initialize())
        return EXIT_FAILURE;
    wxGUIEventLoop loop;
    const wxEventLoopActivator activate(&loop);
    // A failure ends the process here, because its normal end may be cut short with status 0.
    if (RUN_ALL_TESTS() != 0)
        std::quick_exit(EXIT_FAILURE);
    return EXIT_SUCCESS;
}
