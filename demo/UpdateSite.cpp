// A vendor's update site on loopback: a file information with two products, and an installer of
// random bytes, the same for both. It is sent slowly, so that progress can be seen.
//
// Usage: kestrel_demo_site INSTALLER
// Also writes the installer to that path, to compare it with what was saved. Prints the address of
// the file information on a line of its own once the site can be reached, and serves until it is
// ended.

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <thread>

namespace
{

constexpr size_t INSTALLER_SIZE = 4 * 1024 * 1024;
constexpr size_t PIECE_SIZE = 64 * 1024;
constexpr std::chrono::milliseconds PIECE_PAUSE(60);

std::string MakeInstaller()
{
    std::mt19937 random(std::random_device{}());
    std::string content(INSTALLER_SIZE, '\0');
    for (char& byte : content)
        byte = static_cast<char>(random());
    return content;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "Usage: %s INSTALLER\n", argv[0]);
        return 1;
    }
    const std::string installer = MakeInstaller();
    std::ofstream(argv[1], std::ios::binary) << installer;

    httplib::Server server;
    const int port = server.bind_to_any_port("127.0.0.1");
    if (port < 0)
    {
        std::fprintf(stderr, "No free port on loopback\n");
        return 1;
    }
    const std::string site = "http://127.0.0.1:" + std::to_string(port);

    server.Get("/updates.ini",
               [&](const httplib::Request&, httplib::Response& response)
               {
                   response.set_content("; The latest versions\n"
                                        "[ProductA]\n"
                                        "Version=2.1.0.7\n"
                                        "Link=" +
                                            site +
                                            "/downloads/producta-2.1.0.7-setup.bin\n"
                                            "\n"
                                            "[ProductB]\n"
                                            "Version=1.4\n"
                                            "Link=" +
                                            site + "/downloads/productb-1.4.tar.gz\n",
                                        "text/plain");
               });
    server.Get("/downloads/.*",
               [&](const httplib::Request&, httplib::Response& response)
               {
                   response.set_content_provider(
                       installer.size(), "application/octet-stream",
                       [&](size_t offset, size_t left, httplib::DataSink& sink)
                       {
                           std::this_thread::sleep_for(PIECE_PAUSE);
                           return sink.write(installer.data() + offset, std::min(left, PIECE_SIZE));
                       });
               });

    std::printf("%s/updates.ini\n", site.c_str());
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}
