// The window and the whole dialogue, every box answered where the toolkit would have shown it.

#include "tests/Support.h"
#include "window/KestrelFrame.h"

#include <wx/filedlg.h>
#include <wx/log.h>
#include <wx/modalhook.h>
#include <wx/msgdlg.h>
#include <wx/stattext.h>
#include <wx/weakref.h>

#include <climits>

namespace
{

wxString Label(int id)
{
    const wxStaticText* const text = wxDynamicCast(wxWindow::FindWindowById(id), wxStaticText);
    return text ? text->GetLabelText() : wxString("closed");
}

wxString Labels()
{
    return Label(KestrelFrame::ID_FILE_NAME_TEXT) + " " + Label(KestrelFrame::ID_FILE_SIZE_TEXT) +
           " " + Label(KestrelFrame::ID_PROGRESS_TEXT);
}

// Answers each box, and keeps what the user would have seen as a line of text.
class Answers : public wxModalDialogHook
{
public:
    // yes: the answer to the question; savePath: where to save, nowhere to cancel.
    Answers(int yes, const wxString& savePath) : m_yes(yes), m_savePath(savePath) { Register(); }

    wxString m_seen;
    wxString m_labels; // when the last box was shown

protected:
    int Enter(wxDialog* dialog) override
    {
        if (const wxMessageDialog* const box = wxDynamicCast(dialog, wxMessageDialog))
        {
            m_labels = Labels();
            const bool question = (box->GetMessageDialogStyle() & wxYES_NO) != 0;
            m_seen += wxString::Format("%s|%s|%s\n", question ? "?" : "!", box->GetCaption(),
                                       box->GetMessage());
            return question ? m_yes : wxID_OK;
        }
        wxFileDialog* const save = wxDynamicCast(dialog, wxFileDialog);
        if (!save)
        {
            ADD_FAILURE() << "a box nobody asked for: " << dialog->GetTitle();
            return wxID_CANCEL;
        }
        m_seen += wxString::Format("save|%s|%s|%s|%s\n", save->GetMessage(), save->GetDirectory(),
                                   save->GetFilename(), save->GetWildcard());
        if (m_savePath.empty())
            return wxID_CANCEL;
        save->SetPath(m_savePath);
        return Pump([=] { return save->GetPath() == m_savePath; }) ? wxID_OK : wxID_CANCEL;
    }

private:
    const int m_yes;
    const wxString m_savePath;
};

const wxString UNKNOWN = "!|Unknown Internet Version|"
                         "Unable to determine the latest version available\n";
const wxString NO_UPDATE = "!|No Update|There are no updates available at this time.\n";
const wxString QUESTION = "?|New Version Available|There is a new version available for "
                          "download.\nWould you like to download it now?\n";
const wxString DONE = "!|Message|The installer has been successfully downloaded.\n"
                      "Please close the original application and run the installer.\n";
const wxString NO_LINK = "!|No Download Link|The file information does not say where the new "
                         "version can be downloaded.\n";

wxString Failed(const wxString& name)
{
    return "!|Website Unreachable|Unable to download file '" + name +
           "'.\nPlease verify that your have a working internet connection and that the file is "
           "available at that address.\n";
}

class WindowTest : public KestrelTest
{
protected:
    static KestrelFrame* NewFrame()
    {
        return new KestrelFrame(nullptr, KestrelFrame::ID_FRAME, "Kestrel", wxDefaultPosition,
                                wxDefaultSize, wxCAPTION | wxCLOSE_BOX | wxRESIZE_BORDER);
    }

    // Runs the dialogue to its end and returns what the user saw.
    wxString Run(const wxString& address, const wxString& section, const wxString& version,
                 int yes = wxID_YES, const wxString& savePath = wxString())
    {
        Answers answers(yes, savePath);
        const wxWeakRef<wxWindow> frame(NewFrame());
        frame->Show();
        static_cast<KestrelFrame*>(frame.get())->CheckForUpdate(address, section, version);
        EXPECT_TRUE(Pump([&] { return !frame; })) << "the window stays open";
        m_labels = answers.m_labels;
        return answers.m_seen;
    }

    wxString Check(const std::string& fileInfo, const wxString& section = "A",
                   const wxString& version = "1.0")
    {
        m_server.Serve("/info.txt", fileInfo);
        return Run(m_server.Url("/info.txt"), section, version, wxID_NO);
    }

    wxString m_labels;
};

} // namespace

TEST_F(WindowTest, StartsHiddenCentredAndWithItsInitialTexts)
{
    KestrelFrame* const frame = NewFrame();
    EXPECT_FALSE(frame->IsShown());
    EXPECT_EQ(Labels(), " 0 kB 0%");
    EXPECT_EQ(frame->GetSize(), frame->GetMinSize());
    frame->Show();
    Pump([] { return false; }, 1);
    const wxRect screen = wxGetClientDisplayRect(), window = frame->GetRect();
    EXPECT_LE(abs(2 * (window.x - screen.x) + window.width - screen.width), 8);
    EXPECT_LE(abs(2 * (window.y - screen.y) + window.height - screen.height), 8);
    frame->Destroy();
}

TEST_F(WindowTest, VersionsReadAndCompareByComponent)
{
    KestrelFrame* const frame = NewFrame();
    const struct
    {
        const char* version;
        long parts[4];
    } cases[] = {
        {"2.1.0.7", {2, 1, 0, 7}},
        {"1.2", {1, 2, 2, 2}},
        {"1.2.", {1, 2, 0, 0}},
        {"1..3", {1, 0, 3, 3}},
        {".5", {0, 5, 5, 5}},
        {"1.2.3.4.5", {1, 2, 3, 4}},
        {" 01.10b.+3", {1, 10, 3, 3}},
        {"-1.2", {-1, 2, 2, 2}},
        {"beta2.0", {0, 0, 0, 0}},
        {"", {0, 0, 0, 0}},
        {"99999999999999999999.-99999999999999999999", {LONG_MAX, LONG_MIN, LONG_MIN, LONG_MIN}}};
    for (const auto& c : cases)
        for (int k = 1; k <= 4; ++k)
            EXPECT_EQ(frame->GetVersionPart(c.version, k), c.parts[k - 1]) << c.version << " " << k;
    frame->Destroy();

    const struct
    {
        const char *latest, *installed;
        bool newer;
    } pairs[] = {{"2.1.0.7", "2.1.0.6", true},
                 {"1.10", "1.9", true},
                 {"2", "1.9.9.9", true},
                 {"1.2", "1.2.0.0", true},
                 {"1.2.0.0", "1.2", false},
                 {"1.2.2", "1.2", false},
                 {"1.2.3.4.9", "1.2.3.4", false},
                 {"beta2.0", "1.0", false},
                 {"", "1.0", false},
                 {"0", "beta", false},
                 {"1", "-1", true},
                 {"", "", false}};
    for (const auto& p : pairs)
        EXPECT_EQ(Check("[A]\nVersion=" + std::string(p.latest), "A", p.installed),
                  p.newer ? QUESTION : NO_UPDATE)
            << p.latest << " against " << p.installed;
}

TEST_F(WindowTest, SizesAndNamesAreShownAsText)
{
    KestrelFrame* const frame = NewFrame();
    const std::pair<wxLongLong_t, const char*> sizes[] = {
        {0, "0.00 B"},           {-1, "-1.00 B"},
        {1024, "1024.00 B"},     {1025, "1.00 kB"},
        {1536, "1.50 kB"},       {1048576, "1024.00 kB"},
        {1048577, "1.00 MB"},    {1073741824, "1024.00 MB"},
        {1073741825, "1.00 GB"}, {5368709120, "5.00 GB"}};
    for (const auto& size : sizes)
        EXPECT_EQ(frame->FormatFileSize(size.first), size.second);

    const std::pair<const char*, const char*> names[] = {
        {"http://h/downloads/setup.bin", "setup.bin"},
        {"http://h/a/b.bin?x=/y#/z", "b.bin"},
        {"http://h/a/", ""},
        {"http://h", ""},
        {"", ""},
        {"plain", "plain"}};
    for (const auto& name : names)
        EXPECT_EQ(frame->GetFileNameFromURL(name.first), name.second);
    frame->Destroy();
}

TEST_F(WindowTest, FileInformationIsReadOrFoundUnknown)
{
    std::string many;
    for (int i = 0; i < 5000; ++i)
        many += "[Section" + std::to_string(i) + "]\nVersion=9\n";
    const struct
    {
        const char* what;
        std::string text;
        wxString section, seen;
    } cases[] = {{"CRLF, mark and comments", "\xEF\xBB\xBF; c\r\n# c\r\n[A]\r\nVersion=2\r\n", "A",
                  QUESTION},
                 {"among thousands", many + "[A]\nVersion=1.0", "A", NO_UPDATE},
                 {"slash in the name", "[A/B]\nVersion=2", "A/B", QUESTION},
                 {"older", "[A]\nVersion=0.9", "A", NO_UPDATE},
                 {"empty", "", "A", UNKNOWN},
                 {"cut off", "[A]\nVers", "A", UNKNOWN},
                 {"no version", "[A]\nLink=x\n[B]\nVersion=2", "A", UNKNOWN},
                 {"other section", "[B]\nVersion=2", "A", UNKNOWN},
                 {"no section asked for", "[A]\nVersion=2", "", UNKNOWN},
                 {"HTML", "<!DOCTYPE html>\n<a href=\"x\"y>\n=x\n<p>[A]</p>\n", "A", UNKNOWN},
                 {"binary", Bytes(5000), "A", UNKNOWN}};
    for (const auto& c : cases)
        EXPECT_EQ(Check(c.text, c.section), c.seen) << c.what;
}

TEST_F(WindowTest, DialogueGoesItsWholeWay)
{
    const std::string installer = Bytes(70000);
    m_server.Serve("/d/a&b_setup.bin", installer);
    m_server.Serve("/d/unknown-size.tar.gz", installer, Body::NoLength);
    const auto link = [this](const std::string& path)
    { m_server.Serve("/info.txt", "[A]\nVersion=2\nLink=" + m_server.Url(path).utf8_string()); };
    const auto save = [this](const wxString& name, const wxString& extension)
    {
        return "save|Where would you like to save this installer?|" + Path("home/Desktop") + "|" +
               name + "|Installation Package (*." + extension + ")|*." + extension + "\n";
    };
    const wxString address = m_server.Url("/info.txt"), saved = Path("saved");

    link("/d/a&b_setup.bin");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved),
              QUESTION + save("a&b_setup.bin", "bin") + DONE);
    EXPECT_TRUE(m_labels.StartsWith("a&b_setup.bin 68.36 kB 100.00 % (")) << m_labels;
    EXPECT_EQ(Read(saved), installer);

    link("/d/unknown-size.tar.gz");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved),
              QUESTION + save("unknown-size.tar.gz", "gz") + DONE);
    EXPECT_TRUE(m_labels.StartsWith("unknown-size.tar.gz 0.00 B 68.36 kB (")) << m_labels;

    EXPECT_EQ(Run(address, "A", "1", wxID_NO), QUESTION);
    EXPECT_EQ(Run(address, "A", "1", wxID_YES), QUESTION + save("unknown-size.tar.gz", "gz"));

    link("/gone/");
    EXPECT_EQ(Run(address, "A", "1", wxID_YES, saved), QUESTION + save("", "") + Failed(""));
    EXPECT_EQ(Read(saved), installer);

    m_server.Serve("/info.txt", "[A]\nVersion=2");
    EXPECT_EQ(Run(address, "A", "1"), QUESTION + NO_LINK);

    EXPECT_EQ(Run(m_server.Url("/none.txt"), "A", "1"), Failed("none.txt"));
    EXPECT_FALSE(wxFileExists(Path("home/none.txt")));
}

TEST_F(WindowTest, FullDiskIsToldBeforeTheFailure)
{
    m_server.Serve("/setup.bin", Bytes(70000));
    m_server.Serve("/info.txt", "[A]\nVersion=2\nLink=" + m_server.Url("/setup.bin").utf8_string());
    const wxString seen = Run(m_server.Url("/info.txt"), "A", "1", wxID_YES, "/dev/full");
    EXPECT_LT(seen.Find("No space left on device"), seen.Find("Website Unreachable")) << seen;
    EXPECT_TRUE(seen.Contains("No space left on device")) << seen;
    EXPECT_FALSE(seen.Contains("successfully")) << seen;
}

TEST_F(WindowTest, SecondCheckIsRefusedAndLongTextsAreShownWhole)
{
    const std::string name = "/" + std::string(60, 'n') + ".txt";
    m_server.Serve(name, "[A]\nVersion=1\n" + std::string(400000, ';'), Body::Slow);
    Answers answers(wxID_NO, "");
    const wxWeakRef<wxWindow> frame(NewFrame());
    KestrelFrame* const window = static_cast<KestrelFrame*>(frame.get());
    window->Show();
    const wxSize before = window->GetSize();
    window->CheckForUpdate(m_server.Url(name), "A", "1");
    window->CheckForUpdate("", "", "");
    EXPECT_EQ(answers.m_seen, "!|Message|There is a download already in progress\n");

    EXPECT_TRUE(Pump([&] { return window->GetSize().x > before.x + 200; }));
    const wxWindow* const cell = wxWindow::FindWindowById(KestrelFrame::ID_FILE_NAME_TEXT);
    EXPECT_GE(cell->GetSize().x, cell->GetBestSize().x);
    EXPECT_LE(cell->GetRect().GetRight(), cell->GetParent()->GetClientRect().GetRight());

    // Closed in the middle of the transfer: no box, and the second close is no second hand-off.
    window->Close();
    window->Close(true);
    EXPECT_TRUE(Pump([&] { return !frame; }));
    EXPECT_EQ(answers.m_seen.Freq('\n'), 1u);
}
