// The window and the whole dialogue, every box answered where the toolkit would have shown it.

#include "download/wxDownloadEvent.h"
#include "tests/Support.h"
#include "window/KestrelFrame.h"

#include <wx/datetime.h>
#include <wx/display.h>
#include <wx/filedlg.h>
#include <wx/log.h>
#include <wx/modalhook.h>
#include <wx/msgdlg.h>
#include <wx/stattext.h>
#include <wx/weakref.h>

#include <array>
#include <random>
#include <utility>

#include <fcntl.h>
#include <glob.h>
#include <gtk/gtk.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

std::string Labels()
{
    std::string labels;
    for (int id = KestrelFrame::ID_FILE_NAME_TEXT; id <= KestrelFrame::ID_PROGRESS_TEXT; ++id)
        if (const auto text = dynamic_cast<wxStaticText*>(wxWindow::FindWindowById(id)))
            labels += text->GetLabelText().utf8_string() + "|";
    return labels;
}

// Waits for the clock, by which rates are measured, to begin a new second.
void AwaitSecond()
{
    for (const time_t now = wxDateTime::GetTimeNow(); wxDateTime::GetTimeNow() == now; wxMilliSleep(1))
        continue;
}

// Answers each box, and keeps what the user would have seen as a line of text. It begins with "?" for
// the question and its parent, "!" for a plain box, and else with the style as a number.
class Answers : public wxModalDialogHook
{
public:
    // yes: the answer to the question; savePath: where to save, empty to cancel.
    Answers(int yes, const std::string& savePath) : m_yes(yes), m_savePath(savePath) { Register(); }

    wxString m_seen;
    std::string m_labels;    // when the last box was shown
    bool m_punctual = false; // the installer's download begins at the start of a second

protected:
    int Enter(wxDialog* dialog) override
    {
        m_labels = Labels();
        wxWindow* const window = wxWindow::FindWindowById(KestrelFrame::ID_FRAME);
        if (window->IsShown() && !gtk_widget_get_mapped(window->GetHandle()))
            m_seen += "before the window ";
        if (const auto box = dynamic_cast<wxMessageDialog*>(dialog))
        {
            const long style = box->GetMessageDialogStyle();
            const bool question =
                style == (wxYES_NO | wxICON_QUESTION) && dynamic_cast<KestrelFrame*>(box->GetParent());
            m_seen += question                                          ? "?"
                      : style == (wxOK | wxCENTRE | wxICON_INFORMATION) ? "!"
                                                                        : wxString::Format("%lx ", style);
            m_seen += box->GetCaption() + "|" + box->GetMessage() + "\n";
            return style & wxYES_NO ? m_yes : wxID_OK;
        }
        wxFileDialog& save = dynamic_cast<wxFileDialog&>(*dialog);
        m_seen += (save.GetWindowStyle() & (wxFD_SAVE | wxFD_OVERWRITE_PROMPT)) == (wxFD_SAVE | wxFD_OVERWRITE_PROMPT)
                      ? "save|"
                      : "overwrite|";
        m_seen +=
            save.GetMessage() + "|" + save.GetDirectory() + "|" + save.GetFilename() + "|" + save.GetWildcard() + "\n";
        if (m_savePath.empty())
            return wxID_CANCEL;
        save.SetPath(m_savePath);
        Pump([&] { return save.GetPath() == m_savePath; });
        if (m_punctual)
            AwaitSecond();
        return wxID_OK;
    }

private:
    const int m_yes;
    const std::string m_savePath;
};

const std::string UNKNOWN = "!Unknown Internet Version|Unable to determine the latest version available\n";
const std::string NO_UPDATE = "!No Update|There are no updates available at this time.\n";
const std::string QUESTION = "?New Version Available|There is a new version available for download.\n"
                             "Would you like to download it now?\n";
const std::string DONE = "!Message|The installer has been successfully downloaded.\n"
                         "Please close the original application and run the installer.\n";
const std::string WARNING = wxString::Format("%x Kestrel_tests Warning|", wxOK | wxICON_EXCLAMATION).utf8_string();
const std::string ERROR = wxString::Format("%x Kestrel_tests Error|", wxOK | wxICON_ERROR).utf8_string();
const std::string NO_LINK = "!No Download Link|The file information does not say where the new version can be "
                            "downloaded.\n";

std::string Failed(const std::string& name)
{
    return "!Website Unreachable|Unable to download file '" + name +
           "'.\nPlease verify that your have a working "
           "internet connection and that the file is available at that address.\n";
}

std::string NotSaved(const std::string& name, const std::string& reason)
{
    return "!File Not Saved|The file '" + name + "' could not be saved: " + reason + ".\n";
}

std::string Repeat(const std::string& text, int times)
{
    std::string repeated;
    while (times-- > 0)
        repeated += text;
    return repeated;
}

class WindowTest : public KestrelTest
{
protected:
    KestrelFrame* NewWindow()
    {
        KestrelFrame* const window = new KestrelFrame(nullptr, KestrelFrame::ID_FRAME, "Kestrel", wxDefaultPosition,
                                                      wxDefaultSize, wxCAPTION | wxCLOSE_BOX | wxRESIZE_BORDER);
        m_alive = window;
        return window;
    }

    bool HasClosed()
    {
        return Pump([this] { return !m_alive; });
    }

    // Runs the dialogue to its end and returns what the user saw.
    std::string Run(const std::string& address, const std::string& section, const std::string& version,
                    int yes = wxID_YES, const std::string& savePath = "")
    {
        Answers answers(yes, savePath);
        answers.m_punctual = true;
        KestrelFrame* const window = NewWindow();
        window->Show();
        window->CheckForUpdate(address, section, version);
        EXPECT_TRUE(HasClosed());
        m_labels = answers.m_labels;
        return answers.m_seen.utf8_string();
    }

    std::string Check(const std::string& fileInfo, const std::string& section = "A", const std::string& version = "1.0")
    {
        m_server.Serve("/info.txt", fileInfo);
        return Run(m_server.Url("/info.txt"), section, version, wxID_NO);
    }

    std::string m_labels;
    wxWeakRef<wxWindow> m_alive;
};

} // namespace

TEST_F(WindowTest, StartsHiddenAndCentredWithItsInitialTexts)
{
    KestrelFrame* const window = NewWindow();
    EXPECT_FALSE(window->IsShown());
    EXPECT_EQ(Labels(), "|0 kB|0%|");
    EXPECT_EQ(window->GetSize(), window->GetMinSize());
    window->Show();
    Pump([] { return false; }, 1);
    const wxRect screen = wxGetClientDisplayRect(), shown = window->GetRect();
    EXPECT_LE(abs(2 * (shown.x - screen.x) + shown.width - screen.width), 8);
    EXPECT_LE(abs(2 * (shown.y - screen.y) + shown.height - screen.height), 8);

    const wxWindow* const panel = wxWindow::FindWindowById(KestrelFrame::ID_PANEL);
    window->SetSize(600, 400);
    EXPECT_TRUE(Pump([&] { return panel->GetSize() == window->GetClientSize() && panel->GetSize().x > 500; }));
    // What a screen reader says of the values.
    std::string rows;
    for (int id = KestrelFrame::ID_FILE_NAME_TEXT; id <= KestrelFrame::ID_PROGRESS_TEXT; ++id)
    {
        AtkObject* const value = gtk_widget_get_accessible(wxWindow::FindWindowById(id)->GetHandle());
        AtkRelationSet* const relations = atk_object_ref_relation_set(value);
        if (AtkRelation* const name = atk_relation_set_get_relation_by_type(relations, ATK_RELATION_LABELLED_BY))
            rows += atk_object_get_name(ATK_OBJECT(g_ptr_array_index(atk_relation_get_target(name), 0)));
        g_object_unref(relations);
    }
    EXPECT_EQ(rows, "File Name:File Size:Progress:");
    window->Close();
    EXPECT_TRUE(HasClosed());
}

TEST_F(WindowTest, VersionsSizesAndNamesAreReadAsTheyShould)
{
    using Frame = KestrelFrame;
    const std::pair<const char*, const char*> versions[] = {
        {"2.1.0.7", "2 1 0 7"},
        {"1.2", "1 2 2 2"},
        {"1.2.", "1 2 0 0"},
        {"1..3", "1 0 3 3"},
        {".5", "0 5 5 5"},
        {"-1.2", "-1 2 2 2"},
        {" 01.10b.+3", "1 10 3 3"},
        {"1.2.3.4.5", "1 2 3 4"},
        {"", "0 0 0 0"},
        {"beta2.0", "0 0 0 0"},
        {"9223372036854775808.-9e9.-99999999999999999999",
         "9223372036854775807 -9 -9223372036854775808 -9223372036854775808"}};
    for (const auto& [version, parts] : versions)
        EXPECT_EQ(wxString::Format("%ld %ld %ld %ld", Frame::GetVersionPart(version, 1),
                                   Frame::GetVersionPart(version, 2), Frame::GetVersionPart(version, 3),
                                   Frame::GetVersionPart(version, 4)),
                  parts);

    const std::pair<wxLongLong_t, const char*> sizes[] = {
        {0, "0.00 B"},           {-1, "-1.00 B"},         {1024, "1024.00 B"},  {1025, "1.00 kB"},
        {1536, "1.50 kB"},       {1048576, "1024.00 kB"}, {1048577, "1.00 MB"}, {1073741824, "1024.00 MB"},
        {1073741825, "1.00 GB"}, {5368709120, "5.00 GB"}};
    for (const auto& [size, text] : sizes)
        EXPECT_EQ(Frame::FormatFileSize(size), text);

    const std::pair<const char*, const char*> names[] = {{"http://h/d/setup.bin", "setup.bin"},
                                                         {"http://h/a/", ""},
                                                         {"http://h/a/b.bin?x=/y#/z", "b.bin"},
                                                         {"http://h", ""},
                                                         {"https://u:p@[::1]:8/d/[a].bin", "%5ba%5d.bin"},
                                                         {"http://[::1]//[a].bin", "%5ba%5d.bin"},
                                                         {"file:/tmp//[x].bin", "%5bx%5d.bin"},
                                                         {"plain", "plain"}};
    for (const auto& [url, name] : names)
        EXPECT_EQ(Frame::GetFileNameFromURL(url), name);

    const std::pair<const char*, const char*>
        newer[] = {{"2.1.0.7", "2.1.0.6"}, {"1.10", "1.9"}, {"2", "1.9.9.9"}, {"1.2", "1.2.0.0"}, {"1", "-1"}},
        notNewer[] = {{"1.2.0.0", "1.2"}, {"1.2.2", "1.2"}, {"beta2.0", "1.0"}, {"1.2.3.4.9", "1.2.3.4"}, {"", "1.0"},
                      {"0", "beta"},      {"", ""}};
    for (const auto& [latest, installed] : newer)
        EXPECT_TRUE(Frame::IsNewer(latest, installed)) << latest << " " << installed;
    for (const auto& [latest, installed] : notNewer)
        EXPECT_FALSE(Frame::IsNewer(latest, installed)) << latest << " " << installed;
}

TEST_F(WindowTest, FileInformationIsReadOrFoundUnknown)
{
    std::string many, utf16;
    for (int i = 0; i < 5000; ++i)
        many += "[Section" + std::to_string(i) + "]\nVersion=9\n";
    const std::string deep = Repeat("/a", 100000);
    wxSetEnv("LONG", std::string(4096, '1'));
    wxSetEnv("TWO", "2");
    for (const char c : std::string("[A]\nVersion=2\n"))
        utf16 += {c, '\0'};
    const std::string plain = "[A]\nVersion=2\n";
    const std::array<std::string, 4> cases[] = {
        {"deep", "[" + deep + "]\nVersion=2\n" + plain, "A", UNKNOWN},
        {"a long line", plain + std::string(120000, 'x') + "\n[" + std::string(120000, '['), "A", QUESTION},
        {"a long version", "[A]\nVersion=2." + std::string(4095, '1'), "A", UNKNOWN},
        {"a version of variables", "[A]\nVersion=2" + Repeat("$(A", 65), "A", UNKNOWN},
        {"a variable that is long", "[A]\nVersion=2$LONG", "A", UNKNOWN},
        {"a few variables", "[A]\nVersion=$TWO" + Repeat("$LESS", 63), "A", QUESTION},
        {"UTF-16 without a mark", utf16, "A", UNKNOWN},
        {"UTF-16", "\xFF\xFE" + utf16, "A", QUESTION},
        {"Latin-1", "; \xE4\xF6\n" + plain, "A", QUESTION},
        {"NUL", std::string(100, '\0') + "\n" + plain, "A", QUESTION},
        {"CRLF, mark and comments", "\xEF\xBB\xBF; c\r\n# c\r\n[A]\r\nVersion=2\r\n", "A", QUESTION},
        {"among thousands", many + "[A]\nVersion=1.0", "A", NO_UPDATE},
        {"slash in the name", "[A/B]\nVersion=2", "A/B", QUESTION},
        {"empty", "", "A", UNKNOWN},
        {"cut off", "[A]\nVers", "A", UNKNOWN},
        {"no version", "[A]\nLink=x\n[B]\nVersion=2", "A", UNKNOWN},
        {"no section asked for", "[A]\nVersion=2", "", UNKNOWN},
        {"HTML", "<!DOCTYPE html>\n<a href=\"x\"y>\n=x\n<p>[A]</p>\n", "A", UNKNOWN},
        {"binary", Bytes(5000), "A", UNKNOWN}};
    for (const auto& [what, text, section, seen] : cases)
        EXPECT_EQ(Check(text, section), seen) << what;
    m_server.Serve("/cut.txt", plain + plain, Body::Cut);
    EXPECT_EQ(Run(m_server.Url("/cut.txt"), "A", "1.0", wxID_NO), UNKNOWN) << "a text of which half arrives";
    m_server.Serve("/endless.txt", plain + "***;", Body::NoLength);
    EXPECT_EQ(Run(m_server.Url("/endless.txt"), "A", "1"), UNKNOWN);
    for (const std::string& section : {std::string("/"), std::string(".."), std::string("../X"), std::string("\t"),
                                       std::string(5000, '['), deep.substr(0, 40000)})
        EXPECT_EQ(Check(plain, section), UNKNOWN) << section.substr(0, 10);
}

TEST_F(WindowTest, DialogueGoesItsWholeWay)
{
    const std::string installer = Bytes(70000), address = m_server.Url("/info.txt"), saved = Path("saved");
    m_server.Serve("/d/a&b_setup.bin", installer);
    m_server.Serve("/d/unknown-size.tar.gz", installer, Body::NoLength);
    m_server.Serve("/d/cut.bin", installer, Body::Cut);
    const auto link = [this](const std::string& path)
    { m_server.Serve("/info.txt", "[A]\nVersion=2\nLink=" + m_server.Url(path)); };
    const auto save = [this](const std::string& name, const std::string& extension)
    {
        return "save|Where would you like to save this installer?|" + Path("home/Desktop") + "|" + name +
               "|Installation Package (*." + extension + ")|*." + extension + "\n";
    };

    link("/d/a&b_setup.bin");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved), QUESTION + save("a&b_setup.bin", "bin") + DONE);
    EXPECT_EQ(m_labels, "a&b_setup.bin|68.36 kB|100.00 % (0.00 kBps)|");
    EXPECT_EQ(Read(saved), installer);
    EXPECT_EQ(Run(address, "A", "1", wxID_NO), QUESTION);
    EXPECT_EQ(Run(address, "A", "1", wxID_YES), QUESTION + save("a&b_setup.bin", "bin"));

    EXPECT_EQ(Run(address, "A", "1", wxID_YES, "/dev/full"),
              QUESTION + save("a&b_setup.bin", "bin") + NotSaved("full", "No space left on device"));

    link("/d/unknown-size.tar.gz");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved), QUESTION + save("unknown-size.tar.gz", "gz") + DONE);
    EXPECT_EQ(m_labels, "unknown-size.tar.gz|0.00 B|68.36 kB (0.00 kBps)|");

    link("/d/cut.bin");
    wxRmdir(Path("home/Desktop"));
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved), QUESTION + save("cut.bin", "bin") + WARNING +
                                                           "Only 34.18 kB of 68.36 kB of 'saved' have arrived.\n" +
                                                           DONE);
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, Path("tmp/nvrFileInfo.txt")),
              QUESTION + save("cut.bin", "bin") + UNKNOWN);

    link("/gone/");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved), QUESTION + save("", "") + Failed(""));

    m_server.Serve("/info.txt", "[A]\nVersion=2");
    EXPECT_EQ(Run(address, "A", "1"), QUESTION + NO_LINK);
    EXPECT_EQ(Run(m_server.Url("/none.txt"), "A", "1"), Failed("none.txt"));
    // The system's reason comes before what it leads to.
    EXPECT_EQ(Run("file:/none.txt", "A", "1"),
              ERROR + "can't open file '/none.txt' (error 2: No such file or directory)\n" + Failed("none.txt"));
    EXPECT_EQ(Run("", "A", "1"), Failed("")) << "known before the window is on the screen";
}

TEST_F(WindowTest, SecondCheckIsRefusedAndTheLogWaitsForTheFirst)
{
    const std::string busy = "!Message|There is a download already in progress\n";
    m_server.Serve("/info.txt", "[A]\nVersion=1\n" + std::string(100000, ';'), Body::Slow);
    Answers answers(wxID_NO, "");
    KestrelFrame* const window = NewWindow();
    window->Show();
    window->CheckForUpdate(m_server.Url("/info.txt"), "A", "1");
    window->CheckForUpdate("", "", "");
    wxLogWarning("held");
    wxLog::FlushActive();
    EXPECT_EQ(answers.m_seen.utf8_string(), busy);
    EXPECT_TRUE(HasClosed());
    EXPECT_EQ(answers.m_seen.utf8_string(), busy + WARNING + "held\n" + NO_UPDATE);
}

TEST_F(WindowTest, ReportsAreShownWithinTheDisplay)
{
    m_server.Serve("/info.txt", ";", Body::Silent);
    Answers answers(wxID_NO, "");
    KestrelFrame* const window = NewWindow();
    window->Show();
    Pump([] { return false; }, 1);
    AwaitSecond();
    window->CheckForUpdate(m_server.Url("/info.txt"), "A", "1");
    wxDownloadEvent report(wxEVT_DOWNLOAD);
    const auto deliver = [&](int status, const std::string& url, wxLongLong_t bytes, wxLongLong_t size)
    {
        report.SetDownloadStatus(status);
        report.SetURL(url);
        report.SetDownloadedBytes(bytes);
        report.SetFileSize(size);
        window->ProcessWindowEvent(report);
        return Labels();
    };
    AwaitSecond();
    AwaitSecond();
    EXPECT_EQ(deliver(wxDOWNLOAD_INPROGRESS, "http://h/x&y", 512000, 1024000), "x&y|1000.00 kB|50.00 % (256.00 kBps)|");
    EXPECT_EQ(deliver(wxDOWNLOAD_INPROGRESS, "http://h/", 512000, 0), "|0.00 B|500.00 kB (256.00 kBps)|");

    // At an edge of the display the window grows to the inside; a text too long for it has a tooltip.
    const wxWindow* const cell = wxWindow::FindWindowById(KestrelFrame::ID_FILE_NAME_TEXT);
    const wxRect display = wxDisplay(window).GetClientArea();
    const std::string middle(6000, 'm');
    for (const auto& [left, name] : {std::pair(display.x - 50, std::string(60, 'n')),
                                     std::pair(display.GetRight() - 50, "begin" + middle + "end.bin")})
    {
        const int before = window->GetSize().x;
        window->Move(left, 100);
        EXPECT_TRUE(Pump([&, x = left] { return window->GetPosition().x == x; }));
        EXPECT_EQ(deliver(wxDOWNLOAD_INPROGRESS, "http://h/" + name, 1, 4).substr(0, name.length() + 1), name + "|");
        EXPECT_TRUE(Pump([&] { return window->GetSize().x > before + 200 && display.Contains(window->GetRect()); }))
            << window->GetRect().x << " " << window->GetSize().x;
        EXPECT_LE(cell->GetRect().GetRight(), cell->GetParent()->GetClientRect().GetRight());
        EXPECT_EQ(cell->GetToolTipText().empty(), name.length() == 60);
    }

    // GTK is told of the first of many texts in a row and, before a box opens, of the last.
    int changes = 0;
    const GCallback count = G_CALLBACK(+[](int* n) { ++*n; });
    const wxWindow* const progress = wxWindow::FindWindowById(KestrelFrame::ID_PROGRESS_TEXT);
    g_signal_connect_swapped(progress->GetHandle(), "notify::label", count, &changes);
    for (int bytes = 1; bytes <= 1000; ++bytes)
        deliver(wxDOWNLOAD_INPROGRESS, "http://h/" + middle, bytes, 1000);
    const std::string labels = Labels();
    EXPECT_LE(changes, 30);
    deliver(wxDOWNLOAD_FAIL, "http://h/begin" + middle + "end.bin", 0, 0);
    EXPECT_EQ(answers.m_labels, labels);
    EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(progress->GetHandle()))).substr(0, 8), "100.00 %");
    EXPECT_TRUE(HasClosed());
    EXPECT_TRUE(answers.m_seen.Contains("'beginmmm") && answers.m_seen.Contains("mmmend.bin'")) << answers.m_seen;
    EXPECT_LT(answers.m_seen.length(), 400u);
}

TEST_F(WindowTest, ThreadThatCannotBeCreatedIsToldAndTheWindowCloses)
{
    Answers answers(wxID_NO, "");
    KestrelFrame* const window = NewWindow();
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, size_t(1) << 46);
    pthread_setattr_default_np(&huge);
    window->CheckForUpdate("", "", "");
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(Pump([&] { return answers.m_seen.Contains("Can't create download thread!"); }));
    window->Close();
    EXPECT_TRUE(HasClosed());
}

TEST_F(WindowTest, EachRunReadsAFileOfItsOwnMaking)
{
    const std::string path = Path("tmp/nvrFileInfo.txt"), target = Path("target"), fresh = "[A]\nVersion=1.0";
    const std::string planted = "[A]\nVersion=9\nLink=http://127.0.0.1:1/x";
    std::ofstream former;
    int lock = -1;
    glob_t left;
    const struct
    {
        const char* what;
        bool replaced; // by the run's own file; otherwise it is let be
        std::function<void()> plant;
    } cases[] = {{"nothing", true, [] {}},
                 {"a link", false, [&] { EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0); }},
                 {"a link to nothing", false, [&] { EXPECT_EQ(symlink(Path("none").c_str(), path.c_str()), 0); }},
                 {"a second name of a file", true, [&] { EXPECT_EQ(link(target.c_str(), path.c_str()), 0); }},
                 {"a pipe nobody reads", false, [&] { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }},
                 {"a file that everybody can write", true, [&] { Write(path, planted), chmod(path.c_str(), 0666); }},
                 {"a file that a closed run still writes", true, [&] { former.open(path); }},
                 {"another run's file", false,
                  [&]
                  {
                      Write(path, planted);
                      EXPECT_EQ(flock(lock = open(path.c_str(), O_RDONLY | O_CLOEXEC), LOCK_EX), 0);
                  }},
                 {"a group's sticky directory", true, [&] { Write(path, planted), chmod(Path("tmp").c_str(), 01770); }},
                 {"a group's directory", false, [&] { Write(path, planted), chmod(Path("tmp").c_str(), 0770); }},
                 {"a directory that everybody can change", false,
                  [&] { Write(path, planted), chmod(Path("tmp").c_str(), 0777); }},
                 {"somebody else's", false,
                  [&]
                  {
                      Write(path, planted), chmod(Path("tmp").c_str(), 01777);
                      EXPECT_EQ(chown(path.c_str(), 65534, 65534), 0);
                  }}};
    for (const auto& c : cases)
        for (const mode_t mask : {0, 0777})
        {
            if (c.what == std::string("somebody else's") && getuid() != 0)
                continue; // only root can give a file away
            Write(target, planted);
            c.plant();
            umask(mask);
            EXPECT_EQ(Check(fresh), NO_UPDATE) << c.what;
            umask(022);
            former << planted << std::flush;
            former.close();
            close(std::exchange(lock, -1));
            struct stat found = {};
            lstat(path.c_str(), &found);
            EXPECT_EQ(Read(target), planted) << c.what;
            EXPECT_FALSE(wxFileExists(Path("none"))) << c.what;
            EXPECT_EQ(found.st_mode == (S_IFREG | 0600) && Read(path) == fresh, c.replaced) << c.what;
            EXPECT_EQ(glob(Path("*/kestrel-*").c_str(), 0, nullptr, &left), GLOB_NOMATCH) << c.what;
            chmod(Path("tmp").c_str(), 0700);
            unlink(path.c_str());
        }

    // What replaces the file while it arrives is not read.
    m_server.Serve("/slow.txt", fresh + "\n" + std::string(200000, ';'), Body::Slow);
    Answers answers(wxID_NO, "");
    NewWindow()->CheckForUpdate(m_server.Url("/slow.txt"), "A", "1");
    EXPECT_TRUE(Pump([&] { return Labels()[0] == 's'; }));
    EXPECT_EQ(rename(target.c_str(), path.c_str()), 0);
    EXPECT_TRUE(HasClosed());
    EXPECT_EQ(answers.m_seen.utf8_string(), UNKNOWN);

    chmod(Path("tmp").c_str(), 0777);
    wxSetEnv("XDG_RUNTIME_DIR", "run");
    wxSetEnv("XDG_CACHE_HOME", Path("tmp"));
    Answers refused(wxID_NO, "");
    NewWindow()->CheckForUpdate("", "", "");
    EXPECT_EQ(refused.m_seen, "") << "a check never waits for an answer";
    EXPECT_TRUE(HasClosed());
    EXPECT_EQ(refused.m_seen.utf8_string(), NotSaved("nvrFileInfo.txt", "Operation not permitted"));
    wxUnsetEnv("XDG_CACHE_HOME");
}

// Windows and downloads are opened and closed at random instants. The sanitizers
// watch.
TEST_F(WindowTest, ClosesCleanlyAtAnyInstant)
{
    const std::string link = "[A]\nVersion=2\nLink=" + m_server.Url("/slow");
    m_server.Serve("/info.txt", link);
    m_server.Serve("/slow", Bytes(300000), Body::Slow);
    const std::string urls[] = {"", m_server.Url("/info.txt"), m_server.Url("/slow"), "https://127.0.0.1:1/x"};
    std::mt19937 random(4711);
    int closed = 0;
    for (int round = 0; round < 300; ++round)
    {
        Answers answers(round % 50 == 0 ? wxID_YES : wxID_NO, Path("saved"));
        KestrelFrame* const window = NewWindow();
        window->Show(random() % 2 != 0);
        window->CheckForUpdate(urls[random() % std::size(urls)], "A", "1");
        const auto instant = Clock::now() + std::chrono::microseconds(random() % 8000);
        Pump([&] { return !m_alive || Clock::now() > instant; });
        if (m_alive && window->Close())
        {
            ++closed;
            window->Close(true); // no second hand-off
        }
        ASSERT_TRUE(HasClosed()) << round;
    }
    EXPECT_GT(closed, 90) << "the instants no longer lie within the runs";
    EXPECT_LT(closed, 297) << "the instants no longer cover the end of the runs";
}
