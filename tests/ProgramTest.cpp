// The program as its users and vendors meet it: command line, exit status, keyboard, close box.

#include "tests/Support.h"

#include <wx/dir.h>

#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <sys/wait.h>

namespace
{

std::string Output(const std::string& command)
{
    std::string output;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c; (c = fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    pclose(pipe);
    return output;
}

bool WaitFor(const std::function<bool()>& done, int seconds = 20)
{
    for (int i = 0; i < seconds * 50 && !done(); ++i)
        wxMilliSleep(20);
    return done();
}

class ProgramTest : public KestrelTest
{
protected:
    void Start(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), KESTREL_PROGRAM);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(&argument[0]);
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, Path("stderr").utf8_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ASSERT_EQ(posix_spawn(&m_pid, KESTREL_PROGRAM, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }

    // Returns the exit status, or -1 when a signal ended the program or we had to.
    int Wait(int seconds = 20)
    {
        int status = 0;
        if (!WaitFor([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; }, seconds))
        {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Presses Return in the window that holds the keyboard, once its title is the expected one.
    void Return(const std::string& title)
    {
        std::string shown;
        ASSERT_TRUE(WaitFor(
            [&]
            {
                shown = Output("xdotool getactivewindow getwindowname");
                return shown == title + "\n";
            }))
            << "'" << title << "' is not shown, but '" << shown << "'";
        Output("sleep 0.3; xdotool key Return");
    }

    bool HasWindow() { return !Output("wmctrl -l").empty(); }

    pid_t m_pid = 0;
};

} // namespace

TEST_F(ProgramTest, RejectedCommandLineShowsTheUsageAndNoWindow)
{
    const std::vector<std::string> cases[] = {{},
                                              {"-a", "x", "-i", "A"},
                                              {"-a", "x", "-i", "A", "-v"},
                                              {"-a", "x", "-i", "A", "-v", "1", "--unknown"},
                                              {"-a", "x", "-i", "A", "-v", "1", "extra"},
                                              {"--help"}};
    for (const auto& arguments : cases)
    {
        Start(arguments);
        EXPECT_EQ(Wait(), 255);
        EXPECT_NE(Read(Path("stderr")).find("--ini-section"), std::string::npos);
    }
}

TEST_F(ProgramTest, WithoutADisplayItSaysSo)
{
    wxString display;
    wxGetEnv("DISPLAY", &display);
    wxUnsetEnv("DISPLAY");
    Start({"-a", "x", "-i", "A", "-v", "1"});
    wxSetEnv("DISPLAY", display);
    const int status = Wait();
    EXPECT_GT(status, 0);
    EXPECT_NE(Read(Path("stderr")), "");
}

TEST_F(ProgramTest, GoesTheWholeWayByKeyboardInALanguageThatIsNotInstalled)
{
    const std::string installer = Bytes(3000000);
    m_server.Serve("/setup.bin", installer);
    m_server.Serve("/info.txt", "[A]\nVersion=2\nLink=" + m_server.Url("/setup.bin").utf8_string());
    wxSetEnv("LC_ALL", "eo.UTF-8");
    Start({"--version", "1", "--address", m_server.Url("/info.txt").utf8_string(), "-i", "A"});
    wxSetEnv("LC_ALL", "C.UTF-8");
    Return("New Version Available");
    Return("Where would you like to save this installer?");
    Return("");
    EXPECT_EQ(Wait(), 0);
    EXPECT_EQ(Read(Path("home/Desktop/setup.bin")), installer);
    EXPECT_EQ(wxDir::GetAllFiles(Path("tmp"), new wxArrayString), 1u);
}

// The status is 0 and the end comes within a second, whatever the transfer is doing.
TEST_F(ProgramTest, ClosesAtAnyInstant)
{
    m_server.Serve("/silent", Bytes(1000000), Body::Silent);
    m_server.Serve("/slow", Bytes(1000000), Body::Slow);
    const char* const wanted = getenv("KESTREL_CLOSINGS");
    const int closings = wanted ? atoi(wanted) : 20;
    std::mt19937 random(4711);
    for (int i = 0; i < closings; ++i)
    {
        Start(
            {"-a", m_server.Url(i % 2 ? "/silent" : "/slow").utf8_string(), "-i", "A", "-v", "1"});
        ASSERT_TRUE(WaitFor([this] { return HasWindow(); }));
        wxMilliSleep(random() % 200);
        Output("wmctrl -c Kestrel");
        const auto closed = std::chrono::steady_clock::now();
        ASSERT_EQ(Wait(5), 0) << "closing " << i << Read(Path("stderr"));
        EXPECT_LT(std::chrono::steady_clock::now() - closed, std::chrono::seconds(2));
    }
}
