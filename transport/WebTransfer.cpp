#include "transport/WebTransfer.h"

#include "transport/TrustStore.h"

#include <wx/log.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace
{

using std::chrono::milliseconds;

constexpr long MAX_REDIRECTS = 10;

// How long it may take until a cancellation is noticed.
constexpr milliseconds POLL_INTERVAL(50);

// On a fast line, the next bytes arrive within this time.
constexpr milliseconds PACKET_TIME(2);

// The pauses between attempts to go on grow from the first to the last. An attempt that brings this
// many bytes makes them short again.
constexpr milliseconds FIRST_PAUSE(250), LAST_PAUSE(8000);
constexpr curl_off_t REAL_PROGRESS = 16 * 1024;

// How often in a row a resource is fetched from its start without getting further.
constexpr int MAX_TRIES_IN_VAIN = 3;

// In bytes: what the reader asks for at a time; what one call takes from the network (libcurl's
// default of 16 KiB needs more calls); and what may wait for the reader before the transfer pauses.
constexpr size_t BLOCK_SIZE = 4096;
constexpr long RECEIVE_SIZE = 128 * 1024;
constexpr size_t BUFFER_LIMIT = 128 * 1024;

// If libcurl has called this often and none of the body has arrived, the input is a flood. From
// then on it is read slowly, with a pause at each call. The page with which a proxy refuses takes a
// call for each byte.
constexpr int CALLS_IN_VAIN = 65536;
constexpr milliseconds FLOOD_PAUSE(10);

} // namespace

WebTransfer::WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled)
    : m_timeout(timeout)
    , m_cancelled(std::move(cancelled))
    , m_multi(curl_multi_init())
    , m_hash(XXH3_createState())
    , m_pause(FIRST_PAUSE)
{
    XXH3_64bits_reset(m_hash.get());
}

WebTransfer::~WebTransfer()
{
    // libcurl would send QUIT to an ftp server and wait for the answer.
    m_sockets.HangUp();
    StopRequest();
}

bool WebTransfer::Open(const std::string& url)
{
    if (!m_address.Set(url))
        return Fail("not a valid address");
    const std::string asked = m_address.GetUrl();
    Verdict verdict = Ask();
    // libcurl drops the credentials when a redirect leads from http to https; MoveTo() keeps them.
    if (GetStatus() == 401 && m_address.GetUrl() != asked)
        verdict = Ask();
    if (verdict != Verdict::Accept)
        return Fail(GetReason());
    m_resource.Learn(m_request->easy.get());
    m_opened = true;
    return true;
}

size_t WebTransfer::OnSysRead(void* buffer, size_t size)
{
    m_lastArrival = Clock::now(); // the reader may have been away for long
    while (m_readPosition == m_buffer.size() && Fill() == 0 && m_lasterror != wxSTREAM_EOF)
    {
        if (m_stop)
            Fail(m_stop);
        // An ftp server may have a reply to send after the last byte; it is not waited for.
        if (m_stop || m_received == m_resource.GetSize() ||
            (m_request->ended && (!IsCut() || !Resume())))
            m_lasterror = wxSTREAM_EOF;
        else if (!m_request->ended)
            Wait(POLL_INTERVAL);
    }
    const size_t count = std::min(size, m_buffer.size() - m_readPosition);
    std::copy_n(m_buffer.data() + m_readPosition, count, static_cast<char*>(buffer));
    m_readPosition += count;
    return count;
}

bool WebTransfer::CanRead() const
{
    if (m_buffer.size() - m_readPosition >= BLOCK_SIZE)
        return true;
    WebTransfer& self = const_cast<WebTransfer&>(*this);
    self.m_lastArrival = Clock::now();
    if (self.Fill() < BLOCK_SIZE && m_received != m_resource.GetSize())
        self.Wait(PACKET_TIME);
    return self.Fill() >= BLOCK_SIZE || m_received == m_resource.GetSize();
}

// Adds what has arrived to the buffer; returns how many bytes are in it.
size_t WebTransfer::Fill()
{
    m_buffer.erase(m_buffer.begin(),
                   m_buffer.begin() + static_cast<std::ptrdiff_t>(m_readPosition));
    m_readPosition = 0;
    curl_easy_pause(m_request->easy.get(), CURLPAUSE_CONT);
    Advance();
    return m_buffer.size();
}

bool WebTransfer::MayGoOn()
{
    if (m_cancelled())
        m_stop = "cancelled";
    else if (Clock::now() - m_lastArrival > m_timeout)
        m_stop = "nothing has arrived for too long";
    return !m_stop;
}

// The same, for calls by libcurl. It slows down a flood.
bool WebTransfer::MayTakeMore(int calls)
{
    if (!MayGoOn())
        m_sockets.HangUp();
    else if ((m_request->callsInVain += calls) > CALLS_IN_VAIN)
        std::this_thread::sleep_for(FLOOD_PAUSE);
    return !m_stop;
}

// Asks for a byte range, such as "100-", or for the whole resource if the range is empty.
void WebTransfer::StartRequest(const std::string& range)
{
    StopRequest();
    if (!m_request || m_request->known == 0)
        m_expected = XXH3_64bits_digest(m_hash.get());
    XXH3_64bits_reset(m_hash.get());
    m_request = std::make_unique<Request>();
    m_request->known = range.empty() ? m_received : 0;

    CURL* const easy = m_request->easy.get();
    curl_easy_setopt(easy, CURLOPT_URL, m_address.GetUrl().c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https,ftp");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, range.empty() ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, MAX_REDIRECTS);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "Kestrel/" KESTREL_VERSION);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, RECEIVE_SIZE);
    // Without QUICK_EXIT, a cancelled transfer would wait for the resolver.
    for (const CURLoption option :
         {CURLOPT_NOSIGNAL, CURLOPT_QUICK_EXIT, CURLOPT_VERBOSE, CURLOPT_SUPPRESS_CONNECT_HEADERS})
        curl_easy_setopt(easy, option, 1L);
    for (const CURLoption option : {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION})
        curl_easy_setopt(easy, option, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    UseTrustStore(easy);
    if (!range.empty())
    {
        const std::string condition = "If-Range: " + m_resource.GetValidator();
        m_request->headers.reset(curl_slist_append(nullptr, condition.c_str()));
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_request->headers.get());
        curl_easy_setopt(easy, CURLOPT_RANGE, range.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_request->error);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &WebTransfer::OnHeader);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &WebTransfer::OnBody);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &WebTransfer::OnProgress);
    // Only this function is called for empty frames of HTTP/2 and empty records of TLS.
    curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, &WebTransfer::OnDebug);
    for (const CURLoption option :
         {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_XFERINFODATA, CURLOPT_DEBUGDATA})
        curl_easy_setopt(easy, option, this);
    m_sockets.Watch(easy);
    curl_multi_add_handle(m_multi.get(), easy);
}

void WebTransfer::StopRequest()
{
    if (!m_request)
        return;
    curl_easy_setopt(m_request->easy.get(), CURLOPT_VERBOSE, 0L);
    curl_multi_remove_handle(m_multi.get(), m_request->easy.get());
}

// Sends a request and waits until the answer can be judged or no answer will come.
WebTransfer::Verdict WebTransfer::Ask(const std::string& range)
{
    ++m_attempt;
    StartRequest(range);
    for (Advance(); !m_request->answered && !m_request->ended && !m_stop; Advance())
        Wait(POLL_INTERVAL);
    const char* url = "";
    curl_easy_getinfo(m_request->easy.get(), CURLINFO_EFFECTIVE_URL, &url);
    m_address.MoveTo(url);
    return Judge();
}

// Lets libcurl do what it can without waiting.
void WebTransfer::Advance()
{
    int running = 0, left = 0;
    curl_multi_perform(m_multi.get(), &running);
    while (const CURLMsg* const message = curl_multi_info_read(m_multi.get(), &left))
    {
        m_request->ended = true;
        m_request->result = message->data.result;
        // An empty file over ftp has neither header nor body.
        if (m_request->result == CURLE_OK && m_address.IsFtp())
            m_request->answered = true;
    }
}

void WebTransfer::Wait(milliseconds time)
{
    curl_multi_poll(m_multi.get(), nullptr, 0, static_cast<int>(time.count()), nullptr);
    MayGoOn();
}

// Judges the current answer, if there is one yet, and stores the verdict.
WebTransfer::Verdict WebTransfer::Judge()
{
    Verdict& verdict = m_request->verdict;
    if (verdict != Verdict::None || !m_request->answered)
        return verdict;

    CURL* const easy = m_request->easy.get();
    const long status = GetStatus();
    // An ftp server replies with 125 or 150 before the file and with 226 or 250 after it.
    const bool whole = (status / 100 == 2 && status != 204 && status != 205 && status != 206) ||
                       status == 125 || status == 150;
    curl_off_t size = -1;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);

    verdict = Verdict::Refuse;
    if (IsContradiction(easy))
        return verdict;
    if (m_opened && (status == 408 || status == 429 || status / 100 == 5))
        verdict = Verdict::TryAgain;
    else if (!m_opened || !m_resource.IsResumable())
        verdict = whole && (!m_opened || size == m_resource.GetSize()) ? Verdict::Accept : verdict;
    else if (status == 206 && m_resource.Continues(easy, m_received))
        verdict = Verdict::Accept;
    else if (status == 416 &&
             GetWebHeader(easy, "Content-Range") == "bytes */" + std::to_string(m_received))
        verdict = Verdict::Complete;
    return verdict;
}

// Adds some of the answer's body to the buffer, after comparing what was received before. Returns
// false if the answer is not acceptable.
bool WebTransfer::Take(const char* data, size_t size)
{
    if (Judge() != Verdict::Accept)
        return false;
    // What is only compared ends no silence; but while it flows, there is none.
    const auto now = Clock::now();
    if (m_request->known > 0)
        m_lastArrival += std::min<Clock::duration>(now - m_lastTaken, std::chrono::seconds(1));
    else
        m_lastArrival = now;
    m_lastTaken = now;

    curl_off_t& known = m_request->known;
    if (known > 0)
    {
        const size_t part = std::min(size, static_cast<size_t>(known));
        XXH3_64bits_update(m_hash.get(), data, part);
        known -= static_cast<curl_off_t>(part);
        if (known == 0 && XXH3_64bits_digest(m_hash.get()) != m_expected)
        {
            m_request->verdict = Verdict::Refuse;
            return Fail("what comes now is not what has come before");
        }
        data += part;
        size -= part;
    }
    // A part that is longer than its Content-Range says must not make the body longer.
    if (const curl_off_t end = m_resource.GetEnd(); end >= 0)
        size = std::min(size, static_cast<size_t>(end - m_received));
    if (!m_resource.IsResumable())
        XXH3_64bits_update(m_hash.get(), data, size);
    m_buffer.insert(m_buffer.end(), data, data + size);
    m_received += static_cast<curl_off_t>(size);
    if (m_buffer.size() >= BUFFER_LIMIT)
        curl_easy_pause(m_request->easy.get(), CURLPAUSE_RECV);
    return true;
}

// Returns whether some of the body may be missing after the answer has ended. If the size is not
// known, only the server knows whether a part was the last one.
bool WebTransfer::IsCut() const
{
    return m_request->verdict == Verdict::Accept &&
           (m_resource.GetSize() >= 0 || m_resource.GetEnd() >= 0 || m_request->known > 0 ||
            m_request->result != CURLE_OK);
}

// Asks for the rest until it comes or until it is certain that no more will come. Returns whether
// it comes.
bool WebTransfer::Resume()
{
    m_triesInVain = m_received > m_reached ? 0 : m_triesInVain + 1;
    if (m_received - m_reached >= REAL_PROGRESS)
        m_pause = FIRST_PAUSE;
    m_reached = m_received;
    for (;;)
    {
        Fail("stopped (" + GetReason() + ") after " + std::to_string(m_received) + " bytes");
        if (!m_resource.IsResumable() && m_triesInVain == MAX_TRIES_IN_VAIN)
            return Fail("fetched anew too often without getting further");
        for (const auto end = Clock::now() + m_pause; MayGoOn() && Clock::now() < end;)
            std::this_thread::sleep_for(POLL_INTERVAL);
        if (m_stop)
            return Fail(m_stop);
        m_pause = std::min(2 * m_pause, LAST_PAUSE);
        const Verdict verdict =
            Ask(m_resource.IsResumable() ? std::to_string(m_received) + "-" : std::string());
        if (verdict == Verdict::Accept || verdict == Verdict::Complete)
            return verdict == Verdict::Accept;
        if (verdict == Verdict::Refuse)
            return Fail("cannot be resumed: " + GetReason());
    }
}

long WebTransfer::GetStatus() const
{
    long status = 0;
    curl_easy_getinfo(m_request->easy.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

std::string WebTransfer::GetReason() const
{
    if (m_stop)
        return m_stop;
    if (m_request->verdict != Verdict::None && m_request->verdict != Verdict::Accept)
        return "status " + std::to_string(GetStatus());
    if (m_request->result == CURLE_OK)
        return "the answer ended early";
    return m_request->error[0] ? m_request->error : curl_easy_strerror(m_request->result);
}

// Writes the reason to the verbose log. Always returns false.
bool WebTransfer::Fail(const std::string& reason) const
{
    wxLogVerbose("%s, attempt %d: %s", wxString::FromUTF8(m_address.GetText()), m_attempt,
                 wxString::FromUTF8(reason));
    return false;
}

size_t WebTransfer::OnHeader(char* data, size_t, size_t size, void* self)
{
    WebTransfer& transfer = *static_cast<WebTransfer*>(self);
    Request& request = *transfer.m_request;
    if (!transfer.MayGoOn())
        return 0;
    // A header line counts as an arrival, because each redirect may take its time. The replies of
    // an ftp server do not count, because their number has no limit.
    if (!transfer.m_opened && !transfer.m_address.IsFtp())
        transfer.m_lastArrival = Clock::now();
    // Another header follows an interim answer (1xx) or a redirect. The replies of an ftp server
    // come here too.
    const bool lastLine = size <= 2 && (data[0] == '\r' || data[0] == '\n');
    const long status = transfer.GetStatus();
    if (!lastLine || status < 200 || transfer.m_address.IsFtp())
        return size;

    CURL* const easy = request.easy.get();
    const bool moved = (status >= 301 && status <= 303) || status == 307 || status == 308;
    request.answered = !moved || request.headers || GetWebHeader(easy, "Location").empty() ||
                       IsContradiction(easy);
    const char* url = "";
    curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
    if (std::strncmp(url, "https:", 6) == 0)
        curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    // libcurl would also follow other statuses from 300 to 399; this ends the request instead.
    return status / 100 == 3 && request.answered ? 0 : size;
}

size_t WebTransfer::OnBody(char* data, size_t, size_t size, void* self)
{
    WebTransfer& transfer = *static_cast<WebTransfer*>(self);
    transfer.m_request->answered = true;
    // A flood is no less one for a few bytes in it.
    int& calls = transfer.m_request->callsInVain;
    calls -= std::min(calls, static_cast<int>(size / 16));
    return transfer.MayGoOn() && transfer.Take(data, size) ? size : 0;
}
