// Any bytes as a file information: the first line is the section, the second the installed version,
// the rest the text.

#include "tests/fuzz/Fuzz.h"
#include "window/FileInfo.h"

#include <fstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string path = "/dev/shm/kestrel-fuzz-" + std::to_string(getpid());

    std::string text(reinterpret_cast<const char*>(data), size);
    const wxString section = TakeLine(text), installed = TakeLine(text);
    std::ofstream(path, std::ios::binary) << text;
    FileInfo fileInfo(path, section);
    unlink(path.c_str());

    wxString version, link;
    if (!fileInfo.ReadVersion(version))
        Require(version.empty());
    fileInfo.ReadLink(link);
    Require(version.length() <= FileInfo::VALUE_LIMIT && link.length() <= FileInfo::VALUE_LIMIT);
    Require(!KestrelFrame::IsNewer(version, version));
    Require(!(KestrelFrame::IsNewer(version, installed) && KestrelFrame::IsNewer(installed, version)));
    return 0;
}
