#include "app/KestrelApp.h"

#include "window/KestrelFrame.h"

#include <wx/cmdline.h>
#include <wx/crt.h>
#include <wx/filename.h>
#include <wx/image.h>
#include <wx/log.h>
#include <wx/socket.h>
#include <wx/translation.h>

namespace
{

const wxCmdLineEntryDesc COMMAND_LINE[] = {
    {wxCMD_LINE_OPTION, "a", "address", "The URL containing the latest file information.",
     wxCMD_LINE_VAL_STRING, wxCMD_LINE_OPTION_MANDATORY},
    {wxCMD_LINE_OPTION, "i", "ini-section", "The name of the ini section to lookup.",
     wxCMD_LINE_VAL_STRING, wxCMD_LINE_OPTION_MANDATORY},
    {wxCMD_LINE_OPTION, "v", "version", "The current version installed on the operating system.",
     wxCMD_LINE_VAL_STRING, wxCMD_LINE_OPTION_MANDATORY},
    wxCMD_LINE_DESC_END};

#ifndef NDEBUG
// The toolkit asserts on input that it then handles well, such as a malformed line in a text from
// the network. A developer sees it on standard error; the user never gets a box that blocks.
void ReportAssert(const wxString& file, int line, const wxString& function,
                  const wxString& condition, const wxString& message)
{
    wxFprintf(stderr, "%s(%d): assert \"%s\" failed in %s(): %s\n", file, line, condition, function,
              message);
}
#endif

} // namespace

wxIMPLEMENT_APP(KestrelApp);

wxIMPLEMENT_CLASS(KestrelApp, wxApp);

wxBEGIN_EVENT_TABLE(KestrelApp, wxApp)
wxEND_EVENT_TABLE()

bool KestrelApp::OnInit()
{
#ifndef NDEBUG
    wxSetAssertHandler(ReportAssert);
#endif

    // The catalogues lie beside the executable.
    wxFileName program(argc > 0 ? argv[0] : wxString());
    program.Normalize(wxPATH_NORM_ENV_VARS | wxPATH_NORM_DOTS | wxPATH_NORM_TILDE |
                          wxPATH_NORM_ABSOLUTE | wxPATH_NORM_LONG | wxPATH_NORM_SHORTCUT,
                      wxEmptyString, wxPATH_NATIVE);
    wxLocale::AddCatalogLookupPathPrefix(program.GetPath(wxPATH_GET_VOLUME | wxPATH_GET_SEPARATOR) +
                                         "locale");
    // The toolkit's own object, not the locale's: a download thread may look a text up until the
    // process ends, when the application object has gone.
    wxTranslations::Set(new wxTranslations);
    // A language whose locale is not installed is no news to its user, and texts are translated all
    // the same; nor can the user do anything about a catalogue that is broken.
    bool translated = false;
    {
        const wxLogNull quiet;
        m_locale.Init(wxLANGUAGE_DEFAULT, wxLOCALE_LOAD_DEFAULT);
        translated = m_locale.AddCatalog("kestrel");
    }
    if (!translated && wxLocale::GetSystemLanguage() != wxLANGUAGE_ENGLISH_US)
        wxLogVerbose("Unsupported locale - using English");

    if (!wxApp::OnInit())
        return false;

    wxInitAllImageHandlers();
    wxSocketBase::Initialize();

    KestrelFrame* const frame =
        // TRANSLATORS: The title of the window: the program's name, which is kept as it is.
        new KestrelFrame(nullptr, KestrelFrame::ID_FRAME, _("Kestrel"), wxDefaultPosition,
                         wxDefaultSize, wxCAPTION | wxCLOSE_BOX | wxSYSTEM_MENU | wxRESIZE_BORDER);
    frame->Show(true);
    frame->CheckForUpdate(m_cmdAddress, m_cmdIniSection, m_cmdVersion);
    return true;
}

int KestrelApp::OnExit()
{
    return wxApp::OnExit();
}

void KestrelApp::OnInitCmdLine(wxCmdLineParser& parser)
{
    wxApp::OnInitCmdLine(parser);
    parser.SetDesc(COMMAND_LINE);
}

bool KestrelApp::OnCmdLineParsed(wxCmdLineParser& parser)
{
    if (!wxApp::OnCmdLineParsed(parser))
        return false;

    if (parser.Found("a", &m_cmdAddress) && parser.Found("i", &m_cmdIniSection) &&
        parser.Found("v", &m_cmdVersion))
        return true;

    parser.Usage();
    return false;
}
