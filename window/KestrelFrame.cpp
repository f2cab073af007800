#include "window/KestrelFrame.h"

#include "download/wxDownloadEvent.h"
#include "download/wxDownloadFile.h"
#include "window/FileInfo.h"
#include "window/NameText.h"
#include "window/QuietLog.h"
#include "window/ValueText.h"

#include <wx/crt.h>
#include <wx/filedlg.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/intl.h>
#include <wx/log.h>
#include <wx/msgdlg.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/statbox.h>
#include <wx/stattext.h>
#include <wx/utils.h>

namespace
{

// Bytes between two progress reports: often enough for a steady display on a slow line.
constexpr wxLongLong_t PROGRESS_INTERVAL = 16384;

} // namespace

wxIMPLEMENT_CLASS(KestrelFrame, wxFrame);

wxBEGIN_EVENT_TABLE(KestrelFrame, wxFrame)
    EVT_CLOSE(KestrelFrame::OnClose)
    EVT_DOWNLOAD(KestrelFrame::OnDownloadEvent)
wxEND_EVENT_TABLE()

KestrelFrame::KestrelFrame(wxWindow* parent, wxWindowID id, const wxString& title,
                           const wxPoint& pos, const wxSize& size, long style)
{
    Create(parent, id, title, pos, size, style);
}

bool KestrelFrame::Create(wxWindow* parent, wxWindowID id, const wxString& title,
                          const wxPoint& pos, const wxSize& size, long style)
{
    m_fileNameText = m_fileSizeText = m_progressText = nullptr;
    for (wxString* const text : {&m_address, &m_iniSection, &m_currentVersion, &m_fileInfoPath,
                                 &m_installerPath, &m_installerLink})
        text->clear();
    m_download = nullptr;

    // Creating a file is how we learn the temporary directory. If that fails, FileInfoPlace tries
    // other directories, and the user is told if none of them will do.
    wxFileName probe;
    {
        const QuietLog quiet;
        probe = wxFileName::CreateTempFileName("nvrFile");
        wxRemoveFile(probe.GetFullPath());
        if (!probe.IsOk())
            probe.AssignDir(wxFileName::GetTempDir());
        if (!probe.MakeAbsolute())
            probe.Clear();
    }
    m_tempDir = probe.GetPath(wxPATH_GET_VOLUME) + wxFileName::GetPathSeparator();

    wxFrame::Create(parent, id, title, pos, size, style, wxASCII_STR(wxFrameNameStr));
    CreateControls();
    GetSizer()->Fit(this);
    GetSizer()->SetSizeHints(this);
    Centre(wxBOTH);
    return true;
}

void KestrelFrame::CreateControls()
{
    wxBoxSizer* const frameSizer = new wxBoxSizer(wxHORIZONTAL);
    SetSizer(frameSizer);

    wxPanel* const panel = new wxPanel(this, ID_PANEL, wxDefaultPosition, wxDefaultSize,
                                       wxSUNKEN_BORDER | wxTAB_TRAVERSAL);
    // With some input methods GTK does not draw the window's background behind the panel.
    panel->SetBackgroundColour(panel->GetBackgroundColour());
    frameSizer->Add(panel, 1, wxEXPAND | wxALL, 0);

    wxStaticBox* const box = new wxStaticBox(panel, wxID_ANY, _("Download Information"));
    wxStaticBoxSizer* const boxSizer = new wxStaticBoxSizer(box, wxHORIZONTAL);
    panel->SetSizer(boxSizer);

    // The number of rows follows from the number of cells.
    wxFlexGridSizer* const grid = new wxFlexGridSizer(2, 0, 0);
    boxSizer->Add(grid, 0, wxEXPAND | wxALL, 2);

    const auto addRow = [=](const wxString& label, wxWindowID valueId, const wxString& value)
    {
        wxStaticText* const name = new wxStaticText(panel, wxID_STATIC, label);
        grid->Add(name, 0, wxALIGN_CENTER_VERTICAL | wxALL, 5);
        wxStaticText* const cell = new ValueText(panel, valueId, value, name);
        grid->Add(cell, 0, wxALIGN_CENTER_HORIZONTAL | wxALIGN_CENTER_VERTICAL | wxALL, 5);
        return cell;
    };
    // TRANSLATORS: The three rows' labels end with a colon; their values stand to the right.
    m_fileNameText = addRow(_("File Name:"), ID_FILE_NAME_TEXT, wxString());
    m_fileSizeText = addRow(_("File Size:"), ID_FILE_SIZE_TEXT,
                            // TRANSLATORS: The size before anything is known, in kilobytes.
                            _("0 kB"));
    m_progressText = addRow(_("Progress:"), ID_PROGRESS_TEXT,
                            // TRANSLATORS: The progress before anything has arrived.
                            // xgettext:no-c-format
                            _("0%"));
}

void KestrelFrame::OnClose(wxCloseEvent& event)
{
    if (m_download)
    {
        m_download->CancelDownload();
        // The log would open a box about a download that the user no longer waits for.
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the toolkit owns its log.
        delete wxLog::SetActiveTarget(new wxLogStderr);
    }

    // From here on the window handles no events. A report that is still in the queue would go on
    // with the dialogue, and another close would call CancelDownload() twice.
    SetEvtHandlerEnabled(false);
    event.Skip();
}

void KestrelFrame::CheckForUpdate(wxString address, wxString iniSection, wxString currentVersion)
{
    if (m_download)
    {
        wxMessageBox(_("There is a download already in progress"));
        return;
    }

    m_address = address;
    m_iniSection = iniSection;
    m_currentVersion = currentVersion;
    m_fileInfoPath = m_place.Take(m_tempDir);
    if (!m_fileInfoPath.empty())
    {
        StartDownload(m_address, m_fileInfoPath, FileInfo::SIZE_LIMIT);
        return;
    }
    // Reported like any other failure, once the window is on the screen.
    wxDownloadEvent* const failure = new wxDownloadEvent(wxEVT_DOWNLOAD);
    failure->SetDownloadStatus(wxDOWNLOAD_FAIL);
    failure->SetURL(m_address);
    failure->SetDownloadedFile(m_tempDir + FileInfoPlace::FILE_NAME);
    failure->SetFileError(m_place.GetError());
    QueueEvent(failure);
}

void KestrelFrame::StartDownload(const wxString& url, const wxString& localFile, wxLongLong_t limit)
{
    m_download = new wxDownloadFile(this, url, localFile, true, PROGRESS_INTERVAL, limit);
    m_downloadStart = wxDateTime::Now();
    // Without a thread no report will come that could end the pause.
    if (m_download->IsAlive())
        m_logPause.Begin();
}

void KestrelFrame::LetGoOfDownload()
{
    if (m_download)
        m_download->CancelDownload();
    m_download = nullptr;
    m_logPause.End();
}

// static
long KestrelFrame::GetVersionPart(wxString version, int k)
{
    for (int i = 1; i < k && version.Contains("."); ++i)
        version = version.AfterFirst('.');
    return wxStrtol(version, nullptr, 10);
}

// static
bool KestrelFrame::IsNewer(const wxString& version, const wxString& installed)
{
    for (int k = 1; k <= 4; ++k)
    {
        const long part = GetVersionPart(version, k), installedPart = GetVersionPart(installed, k);
        if (part != installedPart)
            return part > installedPart;
    }
    return false;
}

void KestrelFrame::ProcessFileInfo()
{
    // A file that another user may have replaced or changed is not read.
    FileInfo fileInfo(m_place.GetIntactFile(), m_iniSection);
    m_place.Release();
    wxLog::FlushActive();

    wxString version;
    if (!fileInfo.ReadVersion(version))
    {
        CloseWithMessage(_("Unable to determine the latest version available"),
                         // TRANSLATORS: Title of the box that says that the latest version, which
                         // is looked up on the Internet, cannot be determined.
                         _("Unknown Internet Version"));
        return;
    }
    if (!IsNewer(version, m_currentVersion))
    {
        CloseWithMessage(_("There are no updates available at this time."), _("No Update"));
        return;
    }

    const int answer = wxMessageBox(_("There is a new version available for download.\n"
                                      "Would you like to download it now?"),
                                    _("New Version Available"), wxYES_NO | wxICON_QUESTION, this);
    if (answer == wxNO)
    {
        Close(true);
        return;
    }

    wxString link;
    if (!fileInfo.ReadLink(link))
    {
        CloseWithMessage(
            _("The file information does not say where the new version can be downloaded."),
            _("No Download Link"));
        return;
    }
    m_installerLink = link;
    DownloadInstaller();
}

void KestrelFrame::DownloadInstaller()
{
    wxString name = GetFileNameFromURL(m_installerLink);
    if (name.StartsWith("~")) // GTK would take it for a home folder
        name.Replace("~", "_", false);
    wxString extension = wxFileName(name).GetExt();
    // GTK would compare every file in the folder with this pattern, which may take it minutes.
    if (extension.find_first_of("*?[\\;|") != wxString::npos)
        extension.clear();

    wxFileDialog dialog(
        // TRANSLATORS: Title of the dialog for saving a file.
        this, _("Where would you like to save this installer?"),
        wxGetHomeDir() + wxFileName::GetPathSeparator() + "Desktop", name,
        // TRANSLATORS: The type of file, in the list of types of the dialog for saving.
        wxString::Format("%s (*.%s)|*.%s", _("Installation Package"), extension, extension),
        wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    dialog.SetFilename(name); // without the dot that the toolkit adds if there is no extension
    if (dialog.ShowModal() == wxID_OK)
    {
        m_installerPath = dialog.GetPath();
        StartDownload(m_installerLink, m_installerPath);
    }
    else
    {
        Close(true);
    }
}

void KestrelFrame::ShowInstallerDownloaded()
{
    CloseWithMessage(_("The installer has been successfully downloaded.") + "\n" +
                         // TRANSLATORS: The "original application" is the program that the
                         // installer brings up to date.
                         _("Please close the original application and run the installer."),
                     wxASCII_STR(wxMessageBoxCaptionStr));
}

void KestrelFrame::CloseWithMessage(const wxString& message, const wxString& caption)
{
    // The log may have the reason for this message, so the user reads the log first.
    wxLog::FlushActive();
    wxMessageBox(message, caption, wxOK | wxCENTRE);
    Close(true);
}

void KestrelFrame::ReportFailure(const wxDownloadEvent& event)
{
    if (event.GetFileError() != 0)
    {
        CloseWithMessage(
            // TRANSLATORS: The first '%s' is the name of the file, the second the system's reason.
            // xgettext:c-format
            wxString::Format(_("The file '%s' could not be saved: %s."),
                             ShortenForBox(event.GetDownloadedFile().AfterLast('/'), this),
                             wxSysErrorMsgStr(static_cast<unsigned long>(event.GetFileError()))),
            _("File Not Saved"));
        return;
    }
    CloseWithMessage(
        // TRANSLATORS: '%s' is the name of the file; use the quotation marks of your language.
        // xgettext:c-format
        wxString::Format(_("Unable to download file '%s'.\n"
                           "Please verify that your have a working internet connection and "
                           "that the file is available at that address."),
                         ShortenForBox(GetFileNameFromURL(event.GetURL()), this)),
        _("Website Unreachable"));
}

void KestrelFrame::OnDownloadEvent(wxDownloadEvent& event)
{
    if (event.GetDownloadStatus() != wxDOWNLOAD_INPROGRESS && m_appearance.Postpone(event))
        return;

    switch (event.GetDownloadStatus())
    {
    case wxDOWNLOAD_FAIL:
        LetGoOfDownload();
        ReportFailure(event);
        break;

    case wxDOWNLOAD_INPROGRESS:
        ShowProgress(event);
        break;

    case wxDOWNLOAD_COMPLETE:
        ShowProgress(event);
        LetGoOfDownload();
        if (event.GetDownloadedFile() == m_fileInfoPath)
        {
            // A text that was cut may end in the middle of a version: it is not read.
            if (event.IsCut())
                m_place.Release();
            ProcessFileInfo();
        }
        else
        {
            WarnIfCut(event);
            ShowInstallerDownloaded();
        }
        break;
    }
}

// A download that ended early is reported as complete, but the installer may not work.
void KestrelFrame::WarnIfCut(const wxDownloadEvent& event)
{
    if (!event.IsCut())
        return;
    const wxLongLong_t bytes = event.GetDownloadedBytes(), size = event.GetFileSize();
    wxString arrived = FormatFileSize(bytes), whole = size > 0 ? FormatFileSize(size) : "?";
    if (arrived == whole)
    {
        arrived = wxString() << bytes << " B";
        whole = wxString() << size << " B";
    }
    // TRANSLATORS: The first two '%s' are sizes, as in "Only 1.50 MB of 4.00 MB", the third is the
    // name of the file. A size that is not known is "?".
    // xgettext:c-format
    wxLogWarning(_("Only %s of %s of '%s' have arrived."), arrived, whole,
                 ShortenForBox(event.GetDownloadedFile().AfterLast('/'), this));
}

void KestrelFrame::ShowProgress(const wxDownloadEvent& event)
{
    const wxString name = GetFileNameFromURL(event.GetURL());
    if (name.Cmp(m_fileNameText->GetLabelText()) != 0)
        m_fileNameText->SetLabelText(name);
    const wxString size = FormatFileSize(event.GetFileSize());
    if (size.Cmp(m_fileSizeText->GetLabelText()) != 0)
        m_fileSizeText->SetLabelText(size);

    // The same as wxDateTime::Now(), but that converts to local time and back.
    const wxDateTime now(wxDateTime::GetTimeNow());
    const double seconds = (now - m_downloadStart).GetSeconds().ToDouble();
    const wxLongLong_t downloaded = event.GetDownloadedBytes();
    const wxLongLong_t total = event.GetFileSize();
    // Here a kB has 1000 bytes, as usual for network rates.
    const float rate =
        seconds > 0.0 ? static_cast<float>(static_cast<double>(downloaded) / seconds / 1000.0) : 0;
    // Without a known size there is no percentage; the amount shows that the download goes on.
    const wxString done = total > 0
                              ? wxString::Format("%.2f %%", static_cast<float>(downloaded) /
                                                                static_cast<float>(total) * 100.0)
                              : FormatFileSize(downloaded);
    m_progressText->SetLabelText(wxString::Format("%s (%.2f kBps)", done, rate));
}

// static
wxString KestrelFrame::FormatFileSize(wxLongLong_t size)
{
    constexpr wxLongLong_t KB = 1024, MB = 1024 * KB, GB = 1024 * MB;
    constexpr float PER_KB = 1.0f / KB, PER_MB = 1.0f / MB, PER_GB = 1.0f / GB;

    const double bytes = static_cast<double>(size);
    if (size > GB)
        return wxString::Format("%.2f GB", bytes * PER_GB);
    if (size > MB)
        return wxString::Format("%.2f MB", bytes * PER_MB);
    if (size > KB)
        return wxString::Format("%.2f kB", bytes * PER_KB);
    return wxString::Format("%.2f B", bytes);
}

// static
wxString KestrelFrame::GetFileNameFromURL(const wxString& url)
{
    return GetLastSegment(url);
}
