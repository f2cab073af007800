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
    // The toolkit makes some of its locks when they are first used, which no two threads should do.
    wxLogVerbose("starting");
    if (!toolkit || !wxSocketBase::Initialize())
        return EXIT_FAILURE;
    wxGUIEventLoop loop;
    const wxEventLoopActivator activate(&loop);
    // A failure is not left to the end of the process, which may be cut short with status 0.
    const int failed = RUN_ALL_TESTS();
    if (failed != 0)
        std::quick_exit(failed);
    return failed;
}
