// The program's one window. It owns all the state of a run and drives the whole dialogue: it
// fetches the file information, compares versions, asks, saves the installer, says what to do next,
// and closes.
//
// All members are used on the main thread only. A download runs on a thread of its own and reaches
// the window only through download events; at most one runs at a time.
//
// A call that opens a box returns when the user has answered it. Before a message that ends the
// run, the toolkit's log shows what it has collected, in a box of its own. A download that fails is
// reported when its last event arrives, but not before the window is on the screen.

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

    // For two-step creation; call Create() next.
    KestrelFrame() = default;

    // Constructs the window and calls Create(). The window destroys itself when it is closed.
    KestrelFrame(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                 const wxSize& size, long style);

    // Creates the window, hidden and centred, and finds the temporary directory. When the window is
    // shown, it comes to the front. Always returns true.
    bool Create(wxWindow* parent, wxWindowID id, const wxString& title, const wxPoint& pos,
                const wxSize& size, long style);

    // Builds the panel with its three rows. Create() calls it.
    void CreateControls();

    // Starts a run and returns at once. It fetches the file information, and then compares the
    // version in it with the installed one. No argument is checked here; boxes tell the user later
    // what is wrong. If a download is already running, this call opens a box that says so, and does
    // nothing else.
    //
    // address         the URL of the file information
    // iniSection      the section of the file information to read
    // currentVersion  the installed version
    void CheckForUpdate(wxString address, wxString iniSection, wxString currentVersion);

    // Returns component k (1 to 4) of a dotted version, as strtol() with base 10 reads it: 0 if it
    // does not start with a number, the nearest limit of long if the number does not fit. A missing
    // component has the value of the last one present.
    static long GetVersionPart(wxString version, int k);

    // Returns whether a version is newer than the installed one, by their first four components.
    static bool IsNewer(const wxString& version, const wxString& installed);

    // Reads the downloaded file information and gives up its path. Opens a box that asks about the
    // update, or that says why there is none. If the user agrees and there is a link, calls
    // DownloadInstaller(); otherwise closes the window.
    void ProcessFileInfo();

    // Opens the save dialog and starts the installer's download. Closes the window if the user
    // cancels.
    void DownloadInstaller();

    // Opens a box that says what to do with the installer, and closes the window.
    void ShowInstallerDownloaded();

    // Returns a size in bytes as text with two decimals, in the largest of the units kB, MB and GB
    // that it exceeds, otherwise in B. Here a kB has 1024 bytes; in the transfer rate it has 1000.
    static wxString FormatFileSize(wxLongLong_t size);

    // The same as GetLastSegment() in window/NameText.h.
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
    wxDownloadFile* m_download = nullptr; // the running download, to be cancelled exactly once
    wxDateTime m_downloadStart;           // when it was started
    FileInfoPlace m_place;                // gives m_fileInfoPath
    FirstAppearance m_appearance{this};
    LogPause m_logPause; // while a download runs

    wxDECLARE_CLASS(KestrelFrame);
    wxDECLARE_EVENT_TABLE();
};
