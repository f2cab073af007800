#include "app/KestrelApp.h"

#include "app/CatalogueLoader.h"
#include "app/Environment.h"
#include "window/KestrelFrame.h"

#include <wx/cmdline.h>
#include <wx/crt.h>
#include <wx/filename.h>
#include <wx/image.h>
#include <wx/log.h>
#include <wx/socket.h>
#include <wx/translation.h>

#include <gtk/gtk.h>

#include <clocale>
#include <cstring>
#include <cwctype>
#include <vector>

#include <fcntl.h>
#include <langinfo.h>
#include <signal.h>
#include <unistd.h>

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
// the network. Developers read this on standard error instead of in a box that blocks the program.
void ReportAssert(const wxString& file, int line, const wxString& function,
                  const wxString& condition, const wxString& message)
{
    wxFprintf(stderr, "%s(%d): assert \"%s\" failed in %s(): %s\n", file, line, condition, function,
              message);
}
#endif

// The first socket would get the number of a closed descriptor, and with it everything that is
// written to standard error.
void OpenStandardDescriptors()
{
    int descriptor = STDIN_FILENO;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDWR);
    if (descriptor > STDERR_FILENO)
        close(descriptor);
}

// Paths and the environment are UTF-8 on today's systems, whatever the locale says and even if the
// user's locale is not installed. In Turkish, 'I' is no upper-case 'i', but schemes of URLs and
// names in a file information are the same in upper and lower case everywhere.
void ReadTextsAsUtf8()
{
    if (strcmp(nl_langinfo(CODESET), "UTF-8") != 0 || towlower(L'I') != L'i')
        setlocale(LC_CTYPE, "C.UTF-8");
}

} // namespace

wxIMPLEMENT_APP_NO_MAIN(KestrelApp);

int main(int argc, char** argv)
{
    wxDISABLE_DEBUG_SUPPORT();
    OpenStandardDescriptors();
    // A file that reaches the limit on the size of files then gives an error, as a full disk does.
    signal(SIGXFSZ, SIG_IGN);
    // So does writing to a server that has closed the connection; libcurl leaves this to a program.
    signal(SIGPIPE, SIG_IGN);

    AdaptEnvironment();

    // The toolkit would decode the arguments by the locale.
    std::vector<wxWCharBuffer> texts;
    std::vector<wchar_t*> arguments;
    for (int i = 0; i < argc; ++i)
    {
        texts.push_back(wxConvWhateverWorks.cMB2WC(argv[i]));
        arguments.push_back(texts.back().data());
    }
    arguments.push_back(nullptr);
    return wxEntry(argc, arguments.data());
}

wxIMPLEMENT_CLASS(KestrelApp, wxApp);

wxBEGIN_EVENT_TABLE(KestrelApp, wxApp)
wxEND_EVENT_TABLE()

bool KestrelApp::OnInit()
{
#ifndef NDEBUG
    wxSetAssertHandler(ReportAssert);
#endif

    ReadTextsAsUtf8();

    // The catalogues are beside the executable. A name without a folder was found in PATH: taken
    // for a path, it would lead to the current directory, which may be another user's.
    const wxString command = argc > 0 ? argv[0] : wxString();
    wxFileName program(command);
    program.Normalize(wxPATH_NORM_ENV_VARS | wxPATH_NORM_DOTS | wxPATH_NORM_TILDE |
                          wxPATH_NORM_ABSOLUTE | wxPATH_NORM_LONG | wxPATH_NORM_SHORTCUT,
                      wxEmptyString, wxPATH_NATIVE);
    // The toolkit owns this object, not m_locale: a download thread may look up a text until the
    // process ends, after the application object is gone.
    wxTranslations* const translations = new wxTranslations;
    CatalogueLoader* const loader =
        new CatalogueLoader(command.Contains("/") ? program.GetFullPath() : wxString());
    translations->SetLoader(loader);
    wxTranslations::Set(translations);
    // If the locale is not installed, the user knows it, and texts are translated all the same.
    // The user can do nothing about a damaged catalogue.
    bool translated = false;
    {
        const wxLogNull quiet;
        m_locale.Init(wxLANGUAGE_DEFAULT, wxLOCALE_LOAD_DEFAULT);
        ReadTextsAsUtf8(); // again, because Init() sets the locale
        translated = m_locale.AddCatalog("kestrel");
    }
    if (!translated && wxLocale::GetSystemLanguage() != wxLANGUAGE_ENGLISH_US)
        wxLogVerbose("Unsupported locale - using English");

    if (!wxApp::OnInit())
        return false;

    // Now that the command line has been read, --verbose counts.
    for (const wxString& catalogue : loader->GetDamaged())
        wxLogVerbose("The catalogue '%s' is damaged", catalogue);

    wxInitAllImageHandlers();
    wxSocketBase::Initialize();

    // The toolkit would send these after every other event, and no window here handles them.
    wxIdleEvent::SetMode(wxIDLE_PROCESS_SPECIFIED);
    wxUpdateUIEvent::SetMode(wxUPDATE_UI_PROCESS_SPECIFIED);
    // The name of the desktop file. With it, a desktop finds the program's name and icon.
    g_set_prgname("kestrel");
    SetClassName("kestrel");

    KestrelFrame* const frame =
        // TRANSLATORS: The title of the window: the program's name, which is kept as it is.
        new KestrelFrame(nullptr, KestrelFrame::ID_FRAME, _("Kestrel"), wxDefaultPosition,
                         wxDefaultSize, wxCAPTION | wxCLOSE_BOX | wxSYSTEM_MENU | wxRESIZE_BORDER);
    frame->Show(true);
    frame->CheckForUpdate(m_cmdAddress, m_cmdIniSection, m_cmdVersion);

    // Finding the icon takes some time, in which the request is under way. GTK uses the default
    // icon for later windows, which are the dialogs. Newer themes have no application's icon for
    // updates, only that of a notice.
    const char* icon = "system-software-update";
    for (const char* const name :
         {"software-update-available-symbolic", "software-update-available", icon})
        if (gtk_icon_theme_has_icon(gtk_icon_theme_get_default(), name))
            icon = name;
    gtk_window_set_icon_name(GTK_WINDOW(frame->GetHandle()), icon);
    gtk_window_set_default_icon_name(icon);
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
