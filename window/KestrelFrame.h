// The program's one window. It owns all the state of a run and drives the whole dialogue: fetch the
// file information, compare versions, ask, save the installer, say what to do next, close.
//
// Every member belongs to the main thread. Downloads run on a thread of their own and reach the
// window only as download events; at most one runs at a time.

#pragma once

#include "window/FileInfoPlace.h"
#include "window/FirstAppearance.h"
#include "window/LogPause.h"

#include <wx/datetime.h>
#include <wx/frame.h>

class wxDownloadEvent;
class wxDownloadFile;
class wxStaticText;

class KestrelFrame : public wxFrame
{
public:
    enum
    {
        ID_FRAME = 10000,
        ID_PANEL,
        ID_FILE_NAME_TEXT,
        ID_FILE_SIZE_TEXT,
        ID_PROGRESS_TEXT
    };

    // For two-step creation; Create() must follow before anything else.
    KestrelFrame() = default;

    // Constructs and creates in one go. The window destroys itself when it is closed.
    KestrelFrame(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                 const wxSize& size, long style);

    // Creates the window, hidden, laid out and centred, and finds the temporary directory. When it
    // is shown it comes to the front. Always returns true.
    bool Create(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                const wxSize& size, long style);

    // Builds the panel with its three rows.
    void CreateControls();

    // Starts the run, and returns at once: fetches the file information at the URL address, in
    // which the section iniSection will be read and compared with currentVersion, the installed
    // version. Nothing is checked here; a download that fails is reported to the user. While a
    // download runs, the user is told so and nothing else happens.
    void CheckForUpdate(wxString address, wxString iniSection, wxString currentVersion);

    // Returns component k (1 to 4) of a dotted version, as strtol() with base 10 reads it: 0 when
    // there is no number, the nearest limit when it does not fit. A missing component reads as the
    // last one present.
    static long GetVersionPart(wxString version, int k);

    // Returns whether a version is newer than the installed one, by their first four components.
    static bool IsNewer(const wxString& version, const wxString& installed);

    // Decides about the update from the downloaded file information, and closes the window unless
    // the installer's download follows.
    void ProcessFileInfo();

    // Asks where to save the installer and starts its download; closes the window when the user
    // cancels.
    void DownloadInstaller();

    // Tells the user what to do with the installer, and closes the window.
    void ShowInstallerDownloaded();

    // Returns a size in bytes as text, in the largest of B, kB, MB and GB that it exceeds. Here a
    // kB has 1024 bytes, unlike in the transfer rate.
    static wxString FormatFileSize(wxLongLong_t size);

    // Returns the last segment of the URL's path, percent-encoded as it stands; empty when the path
    // is empty or ends in '/'.
    static wxString GetFileNameFromURL(const wxString& url);

private:
    void OnClose(wxCloseEvent& event);
    void OnDownloadEvent(wxDownloadEvent& event);

    void StartDownload(const wxString& url, const wxString& localFile, wxLongLong_t limit = -1);
    void LetGoOfDownload();
    void WarnIfCut(const wxDownloadEvent& event);
    void ReportFailure(const wxDownloadEvent& event);
    void ShowProgress(const wxDownloadEvent& event);
    void CloseWithMessage(const wxString& message, const wxString& caption);

    wxStaticText* m_fileNameText = nullptr;
    wxStaticText* m_fileSizeText = nullptr;
    wxStaticText* m_progressText = nullptr;
    wxString m_address;                   // URL of the file information
    wxString m_iniSection;                // the section to read in it
    wxString m_currentVersion;            // the installed version
    wxString m_tempDir;                   // the temporary directory, ending with the separator
    wxString m_fileInfoPath;              // where the file information is saved
    wxString m_installerPath;             // where the user wants the installer
    wxString m_installerLink;             // URL of the installer
    wxDownloadFile* m_download = nullptr; // the running download, let go of exactly once
    wxDateTime m_downloadStart;           // when it was started
    FileInfoPlace m_place;                // of m_fileInfoPath
    FirstAppearance m_appearance{this};
    LogPause m_logPause; // while a download runs

    wxDECLARE_CLASS(KestrelFrame);
    wxDECLARE_EVENT_TABLE();
};
