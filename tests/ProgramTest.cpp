// The program as its users and vendors meet it: command line, exit status, keyboard, close box.

#include "tests/Support.h"

#include <wx/dir.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

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

// A socket of this machine's own, on a port or on a free one.
struct LoopbackSocket
{
    explicit LoopbackSocket(int port = 0)
    {
        m_address.sin_family = AF_INET;
        m_address.sin_port = htons(static_cast<uint16_t>(port));
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~LoopbackSocket() { close(m_socket); }

    bool Connects() { return connect(m_socket, Address(), m_size) == 0; }

    int FreePort()
    {
        bind(m_socket, Address(), m_size);
        getsockname(m_socket, Address(), &m_size);
        return ntohs(m_address.sin_port);
    }

    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&m_address); }

    const int m_socket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in m_address = {};
    socklen_t m_size = sizeof(m_address);
};

class ProgramTest : public KestrelTest
{
protected:
    void Start(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), KESTREL_PROGRAM);
        m_pid = Spawn(arguments, Path("stderr"));
    }

    // Runs a command that listens on the port, until the test ends.
    void Serve(const std::vector<std::string>& command, int port)
    {
        m_servers.push_back(Spawn(command, Path("server.log")));
        ASSERT_TRUE(WaitFor([=] { return LoopbackSocket(port).Connects(); }));
    }

    void TearDown() override
    {
        for (const pid_t server : m_servers)
        {
            kill(server, SIGTERM);
            waitpid(server, nullptr, 0);
        }
        KestrelTest::TearDown();
    }

    static pid_t Spawn(std::vector<std::string> command, const wxString& output)
    {
        std::vector<char*> argv;
        for (std::string& argument : command)
            argv.push_back(&argument[0]);
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, output.utf8_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, 2, 1);
        pid_t pid = 0;
        EXPECT_EQ(posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return pid;
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

    // Answers the whole dialogue by keyboard, and checks what it has saved.
    void GoAllTheWay(const std::string& installer)
    {
        for (const char* title :
             {"New Version Available", "Where would you like to save this installer?", ""})
            if (!HasFatalFailure())
                Return(title);
        EXPECT_EQ(Wait(), 0);
        EXPECT_TRUE(Read(Path("home/Desktop/setup.bin")) == installer);
    }

    pid_t m_pid = 0;
    std::vector<pid_t> m_servers;
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
    GoAllTheWay(installer);
    EXPECT_EQ(wxDir::GetAllFiles(Path("tmp"), new wxArrayString), 1u);
}

// Two redirects over TLS, then a server that speaks only HTTP/2, all through a proxy that is known
// by the toolkit's own variable.
TEST_F(ProgramTest, GoesTheWholeWayOverHttpsBehindRedirectsAndAProxy)
{
    const wxString key = Path("key.pem"), cert = Path("cert.pem");
    MakeCertificate(key, cert);
    TestServer redirects(key, cert);
    const int proxyPort = LoopbackSocket().FreePort(), webPort = LoopbackSocket().FreePort();
    const std::string webAddress = "127.0.0.1:" + std::to_string(webPort);
    const std::string web = "https://" + webAddress, installer = Bytes(3000000);
    const auto redirect = [&](const std::string& from, const std::string& to)
    { redirects.Serve(from, to, Body::Elsewhere); };
    redirect("/info.txt", "/second");
    redirect("/second", web + "/info.txt");
    redirect("/setup.bin", "/third");
    redirect("/third", web + "/real.bin");
    Write(Path("info.txt"), "[A]\nVersion=2\nLink=" + redirects.Url("/setup.bin").utf8_string());
    Write(Path("real.bin"), installer);
    Write(Path("proxy.conf"), "Port " + std::to_string(proxyPort) +
                                  "\nListen 127.0.0.1\nLogFile \"" +
                                  Path("proxy.log").utf8_string() + "\"\n");
    Serve({"/usr/sbin/nghttpd", "--address=127.0.0.1", "-d", Path("").utf8_string(),
           std::to_string(webPort), key.utf8_string(), cert.utf8_string()},
          webPort);
    Serve({"tinyproxy", "-d", "-c", Path("proxy.conf").utf8_string()}, proxyPort);

    wxSetEnv("SSL_CERT_FILE", cert);
    wxSetEnv("HTTP_PROXY", "127.0.0.1:" + std::to_string(proxyPort));
    Start({"-a", redirects.Url("/info.txt").utf8_string(), "-i", "A", "-v", "1"});
    wxUnsetEnv("SSL_CERT_FILE");
    wxUnsetEnv("HTTP_PROXY");
    GoAllTheWay(installer);
    EXPECT_NE(Read(Path("proxy.log")).find("opening connection to " + webAddress),
              std::string::npos);
}

// The status is 0 and the end comes within a second, whatever the transfer is doing.
TEST_F(ProgramTest, ClosesAtAnyInstant)
{
    m_server.Serve("/silent", Bytes(1000000), Body::Silent);
    const wxString key = Path("key.pem"), cert = Path("cert.pem");
    MakeCertificate(key, cert);
    TestServer tls(key, cert);
    tls.Serve("/slow", Bytes(1000000), Body::Slow);
    wxSetEnv("SSL_CERT_FILE", cert);
    const wxString urls[] = {m_server.Url("/silent"), tls.Url("/slow")};
    const char* const wanted = getenv("KESTREL_CLOSINGS");
    const int closings = wanted ? atoi(wanted) : 20;
    std::mt19937 random(4711);
    for (int i = 0; i < closings; ++i)
    {
        Start({"-a", urls[i % 2].utf8_string(), "-i", "A", "-v", "1"});
        ASSERT_TRUE(WaitFor([this] { return HasWindow(); }));
        wxMilliSleep(random() % 200);
        Output("wmctrl -c Kestrel");
        const auto closed = std::chrono::steady_clock::now();
        ASSERT_EQ(Wait(5), 0) << "closing " << i << Read(Path("stderr"));
        EXPECT_LT(std::chrono::steady_clock::now() - closed, std::chrono::seconds(2));
    }
    wxUnsetEnv("SSL_CERT_FILE");
}
