#include "transport/WebTransfer.h"

#include <wx/filefn.h>
#include <wx/log.h>
#include <wx/utils.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace
{

using std::chrono::milliseconds;

constexpr int MAX_REDIRECTS = 10;

// How long it may take until a cancellation is seen.
constexpr milliseconds POLL_INTERVAL(50);

// The pauses between the tries to resume grow from the first to the last.
constexpr milliseconds FIRST_PAUSE(250);
constexpr milliseconds LAST_PAUSE(8000);

// What may wait for the reader, in bytes; the server is held up beyond that.
constexpr size_t BUFFER_LIMIT = 256 * 1024;

// What is asked for from the network at a time, in bytes: fewer calls than with libcurl's 16 KiB.
constexpr long RECEIVE_SIZE = 128 * 1024;

// No honest answer has a larger header, in bytes.
constexpr size_t HEADER_LIMIT = 256 * 1024;

} // namespace

WebTransfer::WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled)
    : m_timeout(timeout)
    , m_cancelled(std::move(cancelled))
    , m_multi(curl_multi_init())
    , m_easy(curl_easy_init())
{
    CURL* const easy = m_easy.get();
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_error);
    // Without it the end of a cancelled transfer would wait for the resolver.
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    curl_easy_setopt(easy, CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    curl_easy_setopt(easy, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "Kestrel/" KESTREL_VERSION);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(timeout.count()));
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &WebTransfer::OnHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &WebTransfer::OnBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, RECEIVE_SIZE);
    // Certificates in a directory are enough; that the system's file is missing would be an error.
    const char* file = nullptr;
    curl_easy_getinfo(easy, CURLINFO_CAINFO, &file);
    if (file && wxGetEnv("SSL_CERT_DIR", nullptr) && !wxFileExists(file))
        curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
    // The library leaves these two to its users, who know them from other programs.
    SetFromEnv("SSL_CERT_FILE", {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO});
    SetFromEnv("SSL_CERT_DIR", {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH});
}

void WebTransfer::SetFromEnv(const char* variable, std::initializer_list<CURLoption> options)
{
    wxString value;
    if (!wxGetEnv(variable, &value) || value.empty())
        return;
    for (const CURLoption option : options)
        curl_easy_setopt(m_easy.get(), option, value.utf8_string().c_str());
}

WebTransfer::~WebTransfer()
{
    StopRequest();
}

bool WebTransfer::MoveTo(const std::string& address)
{
    const char* const objection = m_address.MoveTo(address);
    return objection ? Fail(objection) : m_address.ApplyTo(m_easy.get());
}

bool WebTransfer::Open(const std::string& address)
{
    if (!MoveTo(address))
        return false;
    for (;;)
    {
        StartRequest();
        if (!AwaitAnswer())
            return Fail(GetReason());
        if (m_verdict == Verdict::Accept)
            break;
        if (m_verdict != Verdict::Redirect)
            return Fail(GetReason());
        if (!FollowRedirect())
            return false;
    }

    m_resource.Learn(m_easy.get());
    m_opened = true;
    return true;
}

bool WebTransfer::FollowRedirect()
{
    const std::string target = GetWebHeader(m_easy.get(), "Location");
    if (target.empty())
        return Fail("redirected without a target");
    if (m_redirects++ == MAX_REDIRECTS)
        return Fail("too many redirects");
    StopRequest();
    return MoveTo(target);
}

void WebTransfer::StartRequest()
{
    StopRequest();
    ++m_attempt;
    m_ended = false;
    m_result = CURLE_OK;
    m_error[0] = '\0';
    m_verdict = Verdict::None;
    m_headerComplete = false;
    m_headerSize = 0;
    m_connected = false;
    if (!m_opened)
        m_lastArrival = Clock::now();
    curl_multi_add_handle(m_multi.get(), m_easy.get());
    m_active = true;
}

void WebTransfer::StopRequest()
{
    if (m_active)
        curl_multi_remove_handle(m_multi.get(), m_easy.get());
    m_active = false;
    m_paused = false;
}

// Waits until the answer can be judged; returns false when none comes.
bool WebTransfer::AwaitAnswer()
{
    while (m_verdict == Verdict::None)
    {
        if (m_headerComplete)
            m_verdict = Judge();
        else if (m_ended || !Advance())
            return false;
    }
    return true;
}

// Waits a moment for the network and lets the transfer go on; returns false when it has been
// cancelled.
bool WebTransfer::Advance()
{
    if (m_cancelled())
    {
        m_ended = true;
        m_result = CURLE_ABORTED_BY_CALLBACK;
        return false;
    }

    curl_multi_poll(m_multi.get(), nullptr, 0, static_cast<int>(POLL_INTERVAL.count()), nullptr);
    int running = 0;
    curl_multi_perform(m_multi.get(), &running);
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_multi.get(), &left))
    {
        if (message->msg == CURLMSG_DONE)
        {
            m_ended = true;
            m_result = message->data.result;
        }
    }

    // Waiting for the answer is bounded on its own, from when the connection stands.
    curl_off_t connectedAfter = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_PRETRANSFER_TIME_T, &connectedAfter);
    if (!m_connected && connectedAfter > 0)
    {
        m_connected = true;
        if (!m_opened)
            m_lastArrival = Clock::now();
    }
    if (!m_ended && Clock::now() - m_lastArrival > m_timeout)
    {
        m_ended = true;
        m_result = CURLE_OPERATION_TIMEDOUT;
    }
    return true;
}

size_t WebTransfer::Read(char* buffer, size_t size)
{
    while (m_readPosition == m_buffer.size())
    {
        if (m_over)
            return 0;
        m_buffer.clear();
        m_readPosition = 0;
        if (m_paused)
        {
            m_paused = false;
            curl_easy_pause(m_easy.get(), CURLPAUSE_CONT);
        }
        else if (m_ended)
        {
            m_over = !IsCut() || !Resume();
        }
        else
        {
            m_over = !Advance();
        }
    }
    const size_t count = std::min(size, m_buffer.size() - m_readPosition);
    std::memcpy(buffer, m_buffer.data() + m_readPosition, count);
    m_readPosition += count;
    return count;
}

// Whether the ended transfer has left some of the body behind.
bool WebTransfer::IsCut() const
{
    return GetSize() >= 0 ? m_received < GetSize() : m_result != CURLE_OK;
}

// Asks for the rest until it comes, nothing has arrived for the time-out, or the answer shows that
// it will not come.
bool WebTransfer::Resume()
{
    const std::string validator = m_resource.GetValidator();
    if (validator.empty())
        return Fail("the connection was cut (" + GetReason() + "), and cannot be resumed");

    for (milliseconds pause = FIRST_PAUSE;; pause = std::min(2 * pause, LAST_PAUSE))
    {
        Fail("the connection was cut (" + GetReason() + ") after " + std::to_string(m_received) +
             " bytes");
        if (m_result == CURLE_ABORTED_BY_CALLBACK || Clock::now() - m_lastArrival > m_timeout ||
            !Pause(pause))
            return false;
        StopRequest();
        m_headers.reset(curl_slist_append(nullptr, ("If-Range: " + validator).c_str()));
        curl_easy_setopt(m_easy.get(), CURLOPT_HTTPHEADER, m_headers.get());
        curl_easy_setopt(m_easy.get(), CURLOPT_RANGE, (std::to_string(m_received) + "-").c_str());
        StartRequest();
        if (!AwaitAnswer() || m_verdict == Verdict::TryAgain)
            continue;
        return m_verdict == Verdict::Accept || Fail("cannot be resumed: " + GetReason());
    }
}

bool WebTransfer::Pause(milliseconds pause)
{
    for (const auto end = Clock::now() + pause; Clock::now() < end;)
    {
        if (m_cancelled())
            return false;
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
    return true;
}

WebTransfer::Verdict WebTransfer::Judge()
{
    long status = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (!HasOneLength(m_easy.get()))
        return Verdict::Refuse;
    if (m_opened)
    {
        if (status == 408 || status == 429 || status >= 500)
            return Verdict::TryAgain;
        return status == 206 && m_resource.Continues(m_easy.get(), m_received) ? Verdict::Accept
                                                                               : Verdict::Refuse;
    }
    switch (status)
    {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
        return Verdict::Redirect;
    case 206: // a part that was not asked for is not the file
        return Verdict::Refuse;
    default:
        return status / 100 == 2 ? Verdict::Accept : Verdict::Refuse;
    }
}

std::string WebTransfer::GetReason() const
{
    if (m_verdict != Verdict::None && m_verdict != Verdict::Accept)
    {
        long status = 0;
        curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
        return "status " + std::to_string(status);
    }
    if (m_result == CURLE_OK)
        return "the answer ended early";
    return m_error[0] ? m_error : curl_easy_strerror(m_result);
}

// Tells the verbose log, and returns false. An address that could not be parsed is left out: it may
// hold a password.
bool WebTransfer::Fail(const std::string& reason) const
{
    wxLogVerbose("%s, attempt %d: %s", wxString::FromUTF8(m_address.GetText()), m_attempt,
                 wxString::FromUTF8(reason));
    return false;
}

size_t WebTransfer::OnHeader(char* data, size_t, size_t size, void* self)
{
    WebTransfer& transfer = *static_cast<WebTransfer*>(self);
    transfer.m_headerSize += size;
    if (transfer.m_headerSize > HEADER_LIMIT)
        return 0;
    if (!transfer.m_opened)
        transfer.m_lastArrival = Clock::now();

    const bool lastLine = size <= 2 && (data[0] == '\r' || data[0] == '\n');
    long status = 0;
    curl_easy_getinfo(transfer.m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
    // An interim answer (1xx) is followed by another header.
    if (lastLine && status >= 200)
        transfer.m_headerComplete = true;
    return size;
}

size_t WebTransfer::OnBody(char* data, size_t, size_t size, void* self)
{
    WebTransfer& transfer = *static_cast<WebTransfer*>(self);
    if (transfer.m_verdict == Verdict::None)
        transfer.m_verdict = transfer.Judge();
    if (transfer.m_verdict != Verdict::Accept)
        return 0;

    std::vector<char>& buffer = transfer.m_buffer;
    if (!buffer.empty() && buffer.size() + size > BUFFER_LIMIT)
    {
        transfer.m_paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    // A continuation that is longer than it says must not make the body longer than it is.
    const curl_off_t end = transfer.m_resource.GetEnd();
    const size_t taken =
        end < 0 ? size : std::min(size, static_cast<size_t>(end - transfer.m_received));
    buffer.insert(buffer.end(), data, data + taken);
    transfer.m_received += static_cast<curl_off_t>(taken);
    transfer.m_lastArrival = Clock::now();
    return taken;
}
