// Any bytes as a URL, and as a size.

#include "tests/fuzz/Fuzz.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    wxLongLong_t bytes = 0;
    std::memcpy(&bytes, data, std::min(size, sizeof(bytes)));
    std::string text(reinterpret_cast<const char*>(data), size);
    Require(KestrelFrame::GetFileNameFromURL(TakeLine(text)).Find('/') == wxNOT_FOUND);

    const wxString shown = KestrelFrame::FormatFileSize(bytes);
    double number = -1;
    Require(shown.EndsWith("B") && shown.BeforeFirst(' ').ToCDouble(&number));
    Require(bytes < 0 || (number >= 0 && (number <= 1024 || shown.EndsWith("GB"))));
    return 0;
}
