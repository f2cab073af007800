// The window and the whole dialogue. A hook of the toolkit answers each box instead of showing it.

#include "download/wxDownloadEvent.h"
#include "tests/Support.h"
#include "window/FileInfo.h"
#include "window/KestrelFrame.h"

#include <wx/modalhook.h>
#include <wx/weakref.h>

#include <gtk/gtk.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Returns the rows: each value after the name that GTK gives to a screen reader.
std::string Rows()
{
    std::string rows;
    for (int id = KestrelFrame::ID_FILE_NAME_TEXT; id <= KestrelFrame::ID_PROGRESS_TEXT; ++id)
        if (const auto value = dynamic_cast<wxStaticText*>(wxWindow::FindWindowById(id)))
        {
            GList* const names = gtk_widget_list_mnemonic_labels(value->GetHandle());
            rows += names ? gtk_label_get_text(GTK_LABEL(names->data)) : "nameless";
            rows += " " + value->GetLabelText().utf8_string() + "|";
            g_list_free(names);
        }
    return rows;
}

// Waits until a new second begins; the clock that rates are measured with may be some milliseconds late.
void AwaitSecond() { wxMilliSleep(1010 - wxGetUTCTimeMillis().ToLong() % 1000); }

std::string Box(const wxString& title, const wxString& text, long style = wxOK | wxCENTRE | wxICON_INFORMATION)
{
    return wxString::Format("%lx|%s|%s\n", style, title, text).utf8_string();
}

const std::string UNKNOWN = Box("Unknown Internet Version", "Unable to determine the latest version available");
const std::string NO_UPDATE = Box("No Update", "There are no updates available at this time.");
const std::string QUESTION =
    Box("New Version Available", "There is a new version available for download.\nWould you like to download it now?",
        wxYES_NO | wxICON_QUESTION);
const std::string DONE = Box("Message", "The installer has been successfully downloaded.\n"
                                        "Please close the original application and run the installer.");

class WindowTest : public KestrelTest, private wxModalDialogHook
{
protected:
    WindowTest()
    {
        Register();
        delete wxLog::SetActiveTarget(nullptr); // a window that was closed during a download left another one
    }

    // Opens a window, and forgets the boxes of the one before.
    KestrelFrame* Open(bool shown = false)
    {
        KestrelFrame* const window = new KestrelFrame(nullptr, KestrelFrame::ID_FRAME, "Kestrel", wxDefaultPosition,
                                                      wxDefaultSize, wxCAPTION | wxCLOSE_BOX | wxRESIZE_BORDER);
        m_window = window;
        m_seen.clear();
        window->Show(shown);
        return window;
    }

    // Waits until the window has closed, and returns the boxes that the user saw.
    std::string SeenToTheEnd()
    {
        EXPECT_TRUE(Pump([this] { return !m_window; }));
        return m_seen;
    }

    // Checks version 1 of product A. The answer is "no", or the path to save to; an empty path cancels the save dialog.
    std::string Run(const std::string& address, const std::string& answer = "no")
    {
        m_answer = answer;
        Open(true)->CheckForUpdate(address, "A", "1");
        return SeenToTheEnd();
    }

    std::string Check(const std::string& fileInfo, const std::string& answer = "no", Body body = Whole)
    {
        return Run(m_server.Serve("/info.txt", body(fileInfo)), answer);
    }

    // Gives the window a report, and returns what the rows show then.
    std::string Deliver(int status, const std::string& name = "", wxLongLong_t bytes = 0, wxLongLong_t size = 0)
    {
        wxDownloadEvent report(wxEVT_DOWNLOAD);
        report.SetDownloadStatus(status);
        report.SetURL("http://h/" + name);
        report.SetDownloadedBytes(bytes);
        report.SetFileSize(size);
        m_window->ProcessWindowEvent(report);
        return Rows();
    }

    int Enter(wxDialog* dialog) override
    {
        m_rows = Rows();
        if (const auto box = dynamic_cast<wxMessageDialog*>(dialog))
        {
            m_seen += Box(box->GetCaption(), box->GetMessage(), box->GetMessageDialogStyle());
            return m_answer == "no" ? wxID_NO : wxID_YES;
        }
        wxFileDialog& save = dynamic_cast<wxFileDialog&>(*dialog);
        m_seen += Box(save.GetMessage(), save.GetDirectory() + "|" + save.GetFilename() + "|" + save.GetWildcard(),
                      save.GetWindowStyle() & (wxFD_SAVE | wxFD_OVERWRITE_PROMPT));
        if (m_answer.empty())
            return wxID_CANCEL;
        save.SetPath(m_answer);
        Pump([&] { return save.GetPath() == m_answer; });
        AwaitSecond(); // the rate is 0 within the download's first second
        return wxID_OK;
    }

    wxWeakRef<wxWindow> m_window;
    std::string m_answer = "no";
    std::string m_seen;
    std::string m_rows; // when the last box opened
};

} // namespace

TEST_F(WindowTest, StartsHiddenAndCentredAndEndsWhenClosed)
{
    KestrelFrame* const window = Open(); // the first one: the toolkit does not know the decorations yet
    EXPECT_FALSE(window->IsShown());
    EXPECT_EQ(Rows(), "File Name: |File Size: 0 kB|Progress: 0%|");
    EXPECT_EQ(window->GetSize(), window->GetMinSize());
    window->Show();
    Pump([] { return false; }, 1);
    const wxRect screen = wxGetClientDisplayRect(), shown = window->GetRect();
    EXPECT_TRUE(shown.Inflate(4, 4).Contains(shown.CentreIn(screen)));

    const wxWindow* const panel = wxWindow::FindWindowById(KestrelFrame::ID_PANEL);
    window->SetSize(600, 400);
    EXPECT_TRUE(Pump([&] { return panel->GetSize() == window->GetClientSize() && panel->GetSize().x > 500; }));

    wxLog::SetVerbose(true); // not while a thread runs
    window->CheckForUpdate("file:/none", "A", "1");
    wxMilliSleep(300); // by now the last report is in the queue, and the log has the reason
    window->Close();
    window->Close(true); // must not cancel the download again
    SeenToTheEnd();
    wxLog::FlushActive();
    wxLog::SetVerbose(false);
    EXPECT_EQ(m_seen, "");
}

TEST_F(WindowTest, BoxWaitsUntilTheWindowIsOnTheScreen)
{
    KestrelFrame* const window = Open();
    const auto later = [](wxShowEvent&) {}; // keeps the event from the window, as if it came later
    window->Bind(wxEVT_SHOW, later);
    window->Show();
    for (const int status : {wxDOWNLOAD_COMPLETE, wxDOWNLOAD_FAIL})
        Deliver(status);
    EXPECT_EQ(m_seen, "");
    window->Unbind(wxEVT_SHOW, later);
    wxShowEvent shown(0, true);
    window->ProcessWindowEvent(shown);
    EXPECT_NE(SeenToTheEnd(), "");
}

TEST_F(WindowTest, VersionsSizesAndNamesFollowTheirRules)
{
    for (const wxString row :
         {"2.1.0.6 < 2.1.0.7", "1.10 > 1.9", "1.9.9.9 < 2", "-1 < 0", "1.2 = 1.2.2.2", "1..3. = 1.0.3.0",
          ".5 = 0.5.5.5", "1.2.3.4.9 = 1.2.3.4", "beta2.0 = 0.0.0.0", "010.10b.+3.4 = 10.10.3.4",
          "9223372036854775808 = 9223372036854775807", "-9223372036854775809 = -9223372036854775808"})
    {
        const wxString left = row.BeforeFirst(' '), right = row.AfterLast(' ');
        EXPECT_EQ(KestrelFrame::IsNewer(left, right), row.Contains(">")) << row;
        EXPECT_EQ(KestrelFrame::IsNewer(right, left), row.Contains("<")) << row;
    }
    const auto all = [](const auto& function, auto... inputs) { return ((function(inputs) + "; ") + ...); };
    EXPECT_EQ(all(KestrelFrame::FormatFileSize, -1, 1024, 1536, 1048576, 1572864, 1073741824, 5368709120),
              "-1.00 B; 1024.00 B; 1.50 kB; 1024.00 kB; 1.50 MB; 1024.00 MB; 5.00 GB; ");
    EXPECT_EQ(all(KestrelFrame::GetFileNameFromURL, "http://h/a/b.bin?x=/y#/z", "http://h/a/", "http://h", "plain",
                  "https://u:p@[::1]:8/d/[a].bin", "http://[::1]//[b].bin", "file:/tmp//[c].bin", "file:/x[d].bin"),
              "b.bin; ; ; plain; %5ba%5d.bin; %5bb%5d.bin; %5bc%5d.bin; x%5bd%5d.bin; ");
}

TEST_F(WindowTest, VersionIsReadOnlyFromAnHonestText)
{
    const std::string plain = "[A]\nVersion=2\n", none = "none", rest = std::string(63, '$') + std::string(1933, '1');
    const wxCharBuffer utf16 = (wxString(wxUniChar(0xFEFF)) + plain).mb_str(wxMBConvUTF16LE());
    wxSetEnv("LONG", std::string(2100, '2'));
    const std::string cases[][4] = {
        {"limit", plain + std::string(99999, 'x') + std::string(32765, '\n') + "[" + std::string(100, '/'), "A", "2"},
        {"a long section", plain + "[" + std::string(9999, 'x') + std::string(999, '\n'), "A", none},
        {"honest sections", "[" + std::string(99, 'x') + std::string(30000, '\n') + plain, "A", "2"},
        {"honest links", ";[" + std::string(90, '/') + std::string(9999, 'x') + std::string(999, '\n') + plain, "A",
         "2"},
        {"quotation marks", plain + std::string(1900, '"'), "A", "2"},
        {"too deep", plain + "[" + std::string(101, '/'), "A", none},
        {"too many quotation marks", plain + std::string(2000, '"'), "A", none},
        {"too many lines", plain + std::string(65535, '\n'), "A", none},
        {"limits of a version", "[A]\nVersion=$LONG" + rest, "A", std::string(2100, '2') + rest},
        {"too long a version", "[A]\nVersion=$LONG" + rest + "1", "A", none},
        {"too many variables", "[A]\nVersion=2" + std::string(65, '$'), "A", none},
        {"UTF-16", std::string(utf16.data(), utf16.length()), "A", "2"},
        {"Latin-1", "; \xE4\xF6\n" + plain, "A", "2"},
        {"CRLF, mark and comments", "\xEF\xBB\xBF; c\r\n# c\r\n[A]\r\nVersion=2\r\n", "A", "2"},
        {"HTML", "<!DOCTYPE html>\n<a href=\"x\"y>\n=x\n<p>[A]</p>\n", "A", none},
        {"no version", "[A]\nLink=x\n[B]\nVersion=2", "A", none},
        {"slash in the section", "[A/B]\nVersion=2", "A/B", "2"},
        {"no section", "Version=1\n" + plain, "", none},
    };
    for (const auto& [what, text, section, expected] : cases)
    {
        Write(Path("text"), text);
        FileInfo info(Path("text"), section);
        wxString version = none;
        info.ReadVersion(version);
        wxLog::FlushActive();
        EXPECT_EQ(version.utf8_string() + m_seen, expected) << what;
    }
}

TEST_F(WindowTest, EachOutcomeShowsItsBoxes)
{
    const std::string saved = Path("saved");
    const std::string save = QUESTION + Box("Where would you like to save this installer?",
                                            Path("home/Desktop") + "|_&b.tar.gz|Installation Package (*.gz)|*.gz",
                                            wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    const auto offer = [&](Body body, const std::string& answer)
    { return Check("[A]\nVersion=2\nLink=" + m_server.Serve("/d/~&b.tar.gz", body(Bytes(70000))), answer); };
    EXPECT_EQ(offer(Whole, saved), save + DONE);
    EXPECT_EQ(m_rows, "File Name: ~&b.tar.gz|File Size: 68.36 kB|Progress: 100.00 % (0.00 kBps)|");
    EXPECT_EQ(offer(Whole, "no"), QUESTION);
    wxRmdir(Path("home/Desktop"));
    EXPECT_EQ(offer(Whole, ""), save);
    EXPECT_EQ(offer(Whole, Path("tmp/nvrFileInfo.txt")), save + UNKNOWN);
    EXPECT_EQ(offer(OfNoLength, saved), save + DONE);
    for (const auto& [body, arrived] : {std::pair(Half, "34.18 kB of 68.36 kB"), std::pair(HalfAChunk, "68.36 kB of ?"),
                                        std::pair(AlmostWhole, "69999 B of 70000 B")})
    {
        const wxString warning = wxString::Format("Only %s of 'saved' have arrived.", arrived);
        EXPECT_EQ(offer(body, saved), save + Box("Kestrel_tests Warning", warning, wxOK | wxICON_EXCLAMATION) + DONE);
        EXPECT_EQ(Check("[A]\nVersion=2\n\n\n[A]\nVersion=2\n", "no", body), UNKNOWN);
    }
    EXPECT_EQ(Check("[A]\nVersion=2", "yes"),
              QUESTION + Box("No Download Link",
                             "The file information does not say where the new version can be downloaded."));
    EXPECT_NE(Check("[A]\nVersion=2\nLink=http://h/a.*;*", "").find("|a.*;*|Installation Package (*.)|*.\n"),
              std::string::npos);
    EXPECT_EQ(Run("file:/%0A/none.txt"), // without the toolkit's own box
              Box("Website Unreachable", "Unable to download file 'none.txt'.\n"
                                         "Please verify that your have a working internet connection and that "
                                         "the file is available at that address."));
    EXPECT_EQ(Check("[A]\nVersion=2\n***;", "no", OfNoLength), UNKNOWN) << "a text without end";
}

TEST_F(WindowTest, SecondCheckIsRefusedAndChangesNothing)
{
    KestrelFrame* const window = Open(true);
    window->CheckForUpdate(m_server.Serve("/info.txt", Whole("[A]\nVersion=1")), "A", "1");
    window->CheckForUpdate("", "", "");
    EXPECT_EQ(SeenToTheEnd(), Box("Message", "There is a download already in progress") + NO_UPDATE);
}

TEST_F(WindowTest, ReportsAreShownWithinTheDisplay)
{
    KestrelFrame* const window = Open(true);
    Pump([] { return false; }, 1);
    AwaitSecond();
    window->CheckForUpdate(m_server.Serve("/info.txt", Ok(1, "...")), "A", "1");
    wxLogWarning("held");
    AwaitSecond();
    AwaitSecond();
    EXPECT_EQ(Deliver(wxDOWNLOAD_INPROGRESS, "x&y", 512000, 1024000),
              "File Name: x&y|File Size: 1000.00 kB|Progress: 50.00 % (256.00 kBps)|");
    EXPECT_EQ(Deliver(wxDOWNLOAD_INPROGRESS, "", 512000, 0),
              "File Name: |File Size: 0.00 B|Progress: 500.00 kB (256.00 kBps)|");

    // The window never grows over an edge of the display; a text that is too long for it becomes its tooltip.
    const wxWindow* const cell = wxWindow::FindWindowById(KestrelFrame::ID_FILE_NAME_TEXT);
    const wxRect display = wxGetClientDisplayRect();
    const int right = display.GetRight() - 50;
    for (const auto& [left, length] : {std::pair(display.x - 50, 20), std::pair(right, 45), std::pair(right, 6000)})
    {
        const std::string name = "begin" + std::string(length, 'm') + "end.bin";
        const int before = window->GetSize().x;
        window->Move(left, 100);
        EXPECT_TRUE(Pump([&, x = left] { return window->GetPosition().x == x; }));
        EXPECT_EQ(Deliver(wxDOWNLOAD_INPROGRESS, name, 1, 4).find("File Name: " + name + "|"), 0u);
        EXPECT_TRUE(Pump([&] { return window->GetSize().x > before + 100; }));
        EXPECT_TRUE(display.Contains(window->GetRect())); // before the window manager corrects it
        EXPECT_EQ(gtk_label_get_ellipsize(GTK_LABEL(cell->GetHandle())), PANGO_ELLIPSIZE_MIDDLE);
        EXPECT_EQ(cell->GetToolTipText().empty(), length < 6000);
    }

    // Of many texts in a row GTK gets only some, but always the last one before a box opens.
    int changes = 0;
    const wxWindow* const progress = wxWindow::FindWindowById(KestrelFrame::ID_PROGRESS_TEXT);
    g_signal_connect_swapped(progress->GetHandle(), "notify::label", G_CALLBACK(+[](int* n) { ++*n; }), &changes);
    for (int bytes = 1; bytes <= 1000; ++bytes)
        Deliver(wxDOWNLOAD_INPROGRESS, "x", bytes, 1000);
    EXPECT_LE(changes, 30);
    EXPECT_EQ(m_seen, "") << "the log waits for the download";
    const std::string rows = Rows();
    EXPECT_EQ(Deliver(wxDOWNLOAD_FAIL, "begin" + std::string(6000, 'm') + "end.bin", 0, 0), rows);
    EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(progress->GetHandle()))).substr(0, 8), "100.00 %");
    const std::string seen = SeenToTheEnd();
    EXPECT_TRUE(wxString(seen).Matches("*|held\n*'beginmmm*mmmend.bin'*") && seen.length() < 450) << seen;
}

TEST_F(WindowTest, ThreadThatCannotBeCreatedIsReported)
{
    KestrelFrame* const window = Open();
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, size_t(1) << 46);
    pthread_setattr_default_np(&huge);
    window->CheckForUpdate("", "", "");
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(Pump([&] { return wxString(m_seen).Contains("Can't create download thread!"); }));
    window->Close();
    SeenToTheEnd();
}

TEST_F(WindowTest, EachRunReadsOnlyTheFileItHasCreated)
{
    const std::string fresh = "[A]\nVersion=1", planted = "[A]\nVersion=9\nLink=http://127.0.0.1:1/x";
    // What happens to a second name of a file at the path, another run's lock on it, and whether the run replaces it.
    const std::tuple<std::string, int, bool> cases[] = {
        {"true", LOCK_EX, false},
        {"ln -sf ../none nvrFileInfo.txt", LOCK_UN, false},
        {"rm nvrFileInfo.txt && mkfifo -m 600 nvrFileInfo.txt", LOCK_UN, false},
        {"chmod 770 .", LOCK_UN, false},
        {"chmod 707 .", LOCK_UN, false},
        {"chown -f nobody . || true", LOCK_UN, getuid() != 0}, // works for root only
        {"chmod 1770 .", LOCK_UN, true},
        {"true", LOCK_UN, true},
    };
    for (const auto& [command, lock, replaced] : cases)
    {
        Write("other", planted);
        EXPECT_TRUE(Shell("rm -rf tmp && mkdir -m 700 tmp && cd tmp && ln ../other nvrFileInfo.txt && " + command));
        const wxFile another("other");
        EXPECT_EQ(flock(another.fd(), lock), 0);
        const mode_t mask = umask(0477);
        EXPECT_EQ(Check(fresh), NO_UPDATE) << command;
        umask(mask);
        EXPECT_EQ(Shell("find tmp -type f -links 1 -perm 600 | grep -q ."), replaced) << command;
        EXPECT_EQ(Read("other"), planted) << command;
        EXPECT_FALSE(Shell("find * -name none -o -name 'kestrel-*' 2>/dev/null | grep .")) << command;
    }

    // A file that somebody replaces or can change while it arrives is not read.
    const std::string failed = "The file 'nvrFileInfo.txt' could not be saved: ";
    const std::string gone = Box("File Not Saved", failed + "No such file or directory.");
    const std::pair<std::string, std::string> attacks[] = {{"mv ../other nvrFileInfo.txt", gone},
                                                           {"ln nvrFileInfo.txt second", UNKNOWN},
                                                           {"chmod 620 nvrFileInfo.txt", UNKNOWN},
                                                           {"chmod 602 nvrFileInfo.txt", UNKNOWN}};
    for (const auto& [attack, seen] : attacks)
    {
        Write("other", fresh);
        const auto change = [&command = attack](const Connection&)
        { EXPECT_TRUE(Shell("cd tmp; timeout 9 sh -c 'until [ -s nvrFileInfo.txt ]; do sleep 0; done'; " + command)); };
        ScriptedServer server({OfNoLength(fresh + "\n;" + std::string(9999, '-'))}, nullptr, EMPTY_LINE, change);
        EXPECT_EQ(Run(server.Url()), seen) << attack;
    }

    chmod(Path("tmp").c_str(), 0777);
    wxSetEnv("XDG_RUNTIME_DIR", "run"); // relative
    EXPECT_EQ(Check(fresh), NO_UPDATE);
    chmod(Path("home/.cache").c_str(), 0777);
    Open()->CheckForUpdate("", "A", "1");
    EXPECT_EQ(m_seen, "") << "a check never waits for an answer";
    EXPECT_EQ(SeenToTheEnd(), Box("File Not Saved", failed + "Operation not permitted."));
}
