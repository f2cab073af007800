// A library that is preloaded into the unchanged program. It answers the program's boxes, and
// measures the installer's download from the answer in the save dialog, which is the path in
// KESTREL_BENCH_SAVE, to the last box. It writes one line of JSON to standard output, in seconds,
// and the text of any other box to standard error.

#include <wx/crt.h>
#include <wx/evtloop.h>
#include <wx/filedlg.h>
#include <wx/modalhook.h>
#include <wx/msgdlg.h>
#include <wx/utils.h>

#include <sys/stat.h>
#include <time.h>

namespace
{

double ToSeconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double Read(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return ToSeconds(time);
}

class Answers : public wxModalDialogHook
{
public:
    Answers() { Register(); }

protected:
    int Enter(wxDialog* dialog) override
    {
        const auto box = dynamic_cast<wxMessageDialog*>(dialog);
        if (!box)
            return Start(dynamic_cast<wxFileDialog&>(*dialog));
        if (box->GetMessageDialogStyle() & wxYES_NO)
            return wxID_YES;
        if (box->GetMessage().Contains("successfully downloaded"))
            Report();
        else
            wxFprintf(stderr, "%s\n", box->GetMessage());
        return wxID_OK;
    }

private:
    int Start(wxFileDialog& dialog)
    {
        wxGetEnv("KESTREL_BENCH_SAVE", &m_path);
        dialog.SetPath(m_path);
        // GTK takes over the path only after some events.
        while (dialog.GetPath() != m_path)
            wxEventLoopBase::GetActive()->YieldFor(wxEVT_CATEGORY_ALL);
        m_process = Read(CLOCK_PROCESS_CPUTIME_ID);
        m_window = Read(CLOCK_THREAD_CPUTIME_ID);
        m_start = Read(CLOCK_MONOTONIC);
        return wxID_OK;
    }

    void Report() const
    {
        struct stat saved = {}; // last written to when the last byte had arrived
        stat(m_path.utf8_str(), &saved);
        wxPrintf("{\"seconds\": %f, \"processor\": %f, \"window\": %f, \"box\": %f}\n",
                 Read(CLOCK_MONOTONIC) - m_start, Read(CLOCK_PROCESS_CPUTIME_ID) - m_process,
                 Read(CLOCK_THREAD_CPUTIME_ID) - m_window,
                 Read(CLOCK_REALTIME) - ToSeconds(saved.st_mtim));
        fflush(stdout);
    }

    wxString m_path;
    double m_start = 0, m_process = 0, m_window = 0; // in seconds
} answers;

} // namespace
