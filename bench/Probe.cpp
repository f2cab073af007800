// Linked to the whole program, answers its boxes and measures the installer's download: from the
// answer in the dialog for saving to the box that ends the dialogue. The result is one line of
// JSON on standard output.
//
//     KESTREL_BENCH_SAVE    where to save the installer
//     KESTREL_BENCH_HOLD    how many milliseconds the window is held up by its first report
//     KESTREL_BENCH_EVENTS  measure so many reports by themselves, and stop at the question

#include "download/wxDownloadEvent.h"
#include "window/KestrelFrame.h"

#include <wx/crt.h>
#include <wx/evtloop.h>
#include <wx/filedlg.h>
#include <wx/modalhook.h>
#include <wx/module.h>
#include <wx/msgdlg.h>
#include <wx/utils.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <time.h>

namespace
{

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

double GetProcessorMilliseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// Not getrusage(): what that gives may be left from the process that started this one.
long GetPeakKilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::stol(line.substr(6));
    return 0;
}

long GetVariable(const char* name)
{
    wxString value;
    long number = 0;
    return wxGetEnv(name, &value) && value.ToLong(&number) ? number : 0;
}

// Stands before the window's event handler, and sees what is posted and what is handled.
class Probe : public wxEvtHandler
{
public:
    explicit Probe(wxWindow* window) : m_window(window)
    {
        window->PushEventHandler(this);
        window->FindWindow(KestrelFrame::ID_PANEL)->Bind(wxEVT_PAINT, &Probe::OnPaint, this);
    }

    ~Probe() override
    {
        m_window->FindWindow(KestrelFrame::ID_PANEL)->Unbind(wxEVT_PAINT, &Probe::OnPaint, this);
        m_window->RemoveEventHandler(this);
    }

    void Start()
    {
        m_posted = m_handled = m_paints = m_mostPending = 0;
        m_hold = GetVariable("KESTREL_BENCH_HOLD");
        m_process = GetProcessorMilliseconds(CLOCK_PROCESS_CPUTIME_ID);
        m_thread = GetProcessorMilliseconds(CLOCK_THREAD_CPUTIME_ID);
        m_start = Clock::now();
    }

    void Report() const
    {
        const auto now = Clock::now();
        std::printf("{\"seconds\": %.4f, \"processor\": %.4f, \"window_us\": %.3f, "
                    "\"reports\": %ld, \"most_pending\": %ld, \"paints\": %ld, "
                    "\"box_ms\": %.2f, \"peak_kib\": %ld}\n",
                    Milliseconds(now - m_start).count() / 1e3,
                    (GetProcessorMilliseconds(CLOCK_PROCESS_CPUTIME_ID) - m_process) / 1e3,
                    (GetProcessorMilliseconds(CLOCK_THREAD_CPUTIME_ID) - m_thread) * 1e3 /
                        static_cast<double>(std::max(1L, m_handled.load())),
                    m_posted.load(), m_mostPending.load(), m_paints,
                    Milliseconds(now - m_lastByte.load()).count(), GetPeakKilobytes());
        std::fflush(stdout);
    }

    long GetHandled() const { return m_handled; }

    // On the download thread.
    void QueueEvent(wxEvent* event) override
    {
        const auto& report = static_cast<const wxDownloadEvent&>(*event);
        // The last progress report is made when the last byte has been written.
        if (report.GetDownloadStatus() == wxDOWNLOAD_INPROGRESS)
            m_lastByte = Clock::now();
        const long pending = ++m_posted - m_handled;
        if (pending > m_mostPending)
            m_mostPending = pending;
        wxEvtHandler::QueueEvent(event);
    }

    bool ProcessEvent(wxEvent& event) override
    {
        if (event.GetEventType() == wxEVT_DOWNLOAD)
        {
            ++m_handled;
            if (m_hold > 0)
                wxMilliSleep(static_cast<unsigned long>(std::exchange(m_hold, 0)));
        }
        return wxEvtHandler::ProcessEvent(event);
    }

private:
    void OnPaint(wxPaintEvent& event)
    {
        ++m_paints;
        event.Skip();
    }

    wxWindow* const m_window;
    Clock::time_point m_start;
    double m_process = 0;
    double m_thread = 0;
    long m_hold = 0;
    long m_paints = 0;
    std::atomic<long> m_posted{0};
    std::atomic<long> m_handled{0};
    std::atomic<long> m_mostPending{0};
    std::atomic<Clock::time_point> m_lastByte{Clock::time_point()};
};

// Posts reports as the download thread does, handles them as the window does, and prints what one
// costs on each side.
void MeasureReports(Probe& probe, long count)
{
    probe.Start();
    double posting = 0;
    std::thread poster(
        [&]
        {
            wxDownloadEvent event(wxEVT_DOWNLOAD, 1);
            event.SetURL("http://127.0.0.1:50000/producta-2.1.0.7-setup.bin");
            event.SetDownloadedFile("/home/user/Desktop/producta-2.1.0.7-setup.bin");
            event.SetDownloadStatus(wxDOWNLOAD_INPROGRESS);
            event.SetFileSize(count * 16384);
            for (long i = 1; i <= count; ++i)
            {
                event.SetDownloadedBytes(i * 16384);
                probe.AddPendingEvent(event);
            }
            posting = GetProcessorMilliseconds(CLOCK_THREAD_CPUTIME_ID);
        });
    const double start = GetProcessorMilliseconds(CLOCK_THREAD_CPUTIME_ID);
    while (probe.GetHandled() < count)
        wxEventLoopBase::GetActive()->YieldFor(wxEVT_CATEGORY_ALL);
    const double handling = GetProcessorMilliseconds(CLOCK_THREAD_CPUTIME_ID) - start;
    poster.join();
    const double each = 1e3 / static_cast<double>(count);
    std::printf("{\"thread_us\": %.3f, \"window_us\": %.3f}\n", posting * each, handling * each);
}

class Answers : public wxModalDialogHook
{
protected:
    int Enter(wxDialog* dialog) override
    {
        if (const auto box = dynamic_cast<wxMessageDialog*>(dialog))
        {
            if (box->GetMessageDialogStyle() & wxYES_NO)
                return AnswerQuestion();
            if (m_probe)
                m_probe->Report();
            else
                wxFprintf(stderr, "%s\n", box->GetMessage());
            m_probe.reset();
            return wxID_OK;
        }
        return AnswerSave(dynamic_cast<wxFileDialog&>(*dialog));
    }

private:
    int AnswerQuestion()
    {
        m_probe = std::make_unique<Probe>(wxWindow::FindWindowById(KestrelFrame::ID_FRAME));
        const long count = GetVariable("KESTREL_BENCH_EVENTS");
        if (count == 0)
            return wxID_YES;
        MeasureReports(*m_probe, count);
        m_probe.reset();
        return wxID_NO;
    }

    int AnswerSave(wxFileDialog& dialog)
    {
        wxString path;
        wxGetEnv("KESTREL_BENCH_SAVE", &path);
        dialog.SetPath(path);
        // GTK takes the path in its own time.
        while (dialog.GetPath() != path)
            wxEventLoopBase::GetActive()->YieldFor(wxEVT_CATEGORY_ALL);
        m_probe->Start();
        return wxID_OK;
    }

    std::unique_ptr<Probe> m_probe;
};

} // namespace

class ProbeModule : public wxModule
{
public:
    bool OnInit() override
    {
        m_answers.Register();
        return true;
    }

    void OnExit() override { m_answers.Unregister(); }

private:
    Answers m_answers;

    wxDECLARE_DYNAMIC_CLASS(ProbeModule);
};

wxIMPLEMENT_DYNAMIC_CLASS(ProbeModule, wxModule);
