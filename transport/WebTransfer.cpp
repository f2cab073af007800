#include "transport/WebTransfer.h"

#include <wx/log.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace
{

using std::chrono::milliseconds;

// How soon a cancellation is noticed, and the next bytes arrive on a fast line.
constexpr milliseconds POLL_INTERVAL(50), PACKET_TIME(2);

// The pauses between attempts to go on grow from the first to the last. An attempt that brings this
// many bytes makes them short again.
constexpr milliseconds FIRST_PAUSE(250), LAST_PAUSE(8000);
constexpr curl_off_t REAL_PROGRESS = 16 * 1024;

// How many answers in a row with the resource from its start may get no further; and by how much a
// byte that is compared, because it has been received before, puts off the end of the silence.
constexpr int MAX_TRIES_IN_VAIN = 3;
constexpr milliseconds COMPARE_TIME(1);

// In bytes: what one call takes from the network (libcurl's default of 16 KiB needs more calls);
// what the reader asks for at a time; what may wait for the reader before the transfer pauses; and
// all headers of a request, because libcurl does not limit trailers.
constexpr long RECEIVE_SIZE = 128 * 1024;
constexpr size_t BLOCK_SIZE = 4096, BUFFER_LIMIT = 128 * 1024, HEADER_LIMIT = 512 * 1024;

// If libcurl's calls without any of the body count this much, the input is a flood, which is read
// with a pause at each call. The page of a proxy that refuses takes a call for each byte.
constexpr int CALLS_IN_VAIN = 65536;
constexpr milliseconds FLOOD_PAUSE(10);

// A closed socket's number may be another file's by now. The thread sanitizer would report fstat().
unsigned long long GetInode(curl_socket_t socket)
{
    struct statx found;
    return statx(socket, "", AT_EMPTY_PATH, STATX_INO, &found) == 0 ? found.stx_ino : 0;
}

} // namespace

WebTransfer::~WebTransfer()
{
    // libcurl would send QUIT to an ftp server and wait for the answer.
    HangUp();
    StopRequest();
}

bool WebTransfer::Open(const std::string& url)
{
    if (!m_address.Set(url))
        return Fail("not a valid address");
    return Ask() == Verdict::Accept || Fail(GetReason());
}

size_t WebTransfer::OnSysRead(void* buffer, size_t size)
{
    m_lastArrival = Clock::now(); // the reader may have been away for long
    while (m_readPosition == m_buffer.size() && Fill() == 0 && IsOk())
    {
        if (IsComplete())
            m_lasterror = wxSTREAM_EOF;
        else if ((m_stop || m_request->ended) && !Resume())
            m_lasterror = wxSTREAM_READ_ERROR;
        else if (!m_request->ended)
            Wait(POLL_INTERVAL);
    }
    const size_t count = std::min(size, m_buffer.size() - m_readPosition);
    m_buffer.copy(static_cast<char*>(buffer), count, m_readPosition);
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
    m_buffer.erase(0, m_readPosition);
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

// The same for calls by libcurl; slows down a flood, and waits for no reply after the last byte.
bool WebTransfer::MayTakeMore(int calls)
{
    m_request->callsInVain += calls;
    const bool wantsMore = MayGoOn() && m_received != m_resource.GetSize();
    if (!wantsMore)
        HangUp();
    else if (m_request->callsInVain > CALLS_IN_VAIN)
        std::this_thread::sleep_for(FLOOD_PAUSE);
    return wantsMore;
}

// Asks for a byte range, such as "100-", or for the whole resource if the range is empty.
void WebTransfer::StartRequest(const std::string& range)
{
    StopRequest();
    if (m_request && m_request->known == 0)
        m_expected = XXH3_64bits_digest(m_hash.get());
    XXH3_64bits_reset(m_hash.get());
    m_request = std::make_unique<Request>();
    m_request->known = range.empty() ? m_received : 0;

    CURL* const easy = m_request->easy.get();
    curl_easy_setopt(easy, CURLOPT_URL, m_address.GetUrl().c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https,ftp");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, m_address.GetScheme().c_str());
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "Kestrel/" KESTREL_VERSION);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 0L); // until OnHeader() permits more
    // Each address of a host, except the last, is tried for half of the time that is left. A proxy
    // that refuses must end its answer in time, trailers included.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_timeout.count()));
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, RECEIVE_SIZE);
    // Over HTTP/2, libcurl would take some broken connections for the end of the answer. Without
    // QUICK_EXIT, a cancelled transfer would wait for the resolver.
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    for (const CURLoption option : {CURLOPT_NOSIGNAL, CURLOPT_QUICK_EXIT, CURLOPT_VERBOSE,
                                    CURLOPT_FOLLOWLOCATION, CURLOPT_SUPPRESS_CONNECT_HEADERS})
        curl_easy_setopt(easy, option, 1L);
    for (const CURLoption option : {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION})
        curl_easy_setopt(easy, option, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    for (const CURLoption option : {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO})
        curl_easy_setopt(easy, option, std::getenv("SSL_CERT_FILE"));
    for (const CURLoption option : {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH})
        curl_easy_setopt(easy, option, std::getenv("SSL_CERT_DIR"));
    if (!range.empty())
    {
        m_request->headers.reset(
            curl_slist_append(nullptr, ("If-Range: " + m_resource.GetValidator()).c_str()));
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_request->headers.get());
        curl_easy_setopt(easy, CURLOPT_RANGE, range.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_request->error);
    SetCallbacks(easy);
    curl_multi_add_handle(m_multi.get(), easy);
}

void WebTransfer::SetCallbacks(CURL* easy)
{
    const auto onProgress = [](void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
    { return static_cast<WebTransfer*>(self)->MayTakeMore() ? 0 : 1; };
    // Only this one is called for empty records of TLS. Headers have a limit of their own.
    const auto onDebug = [](CURL*, curl_infotype type, char* data, size_t size, void* self)
    {
        // close_notify, the alert that ends a connection properly (RFC 8446, section 6.1)
        if (type == CURLINFO_SSL_DATA_IN && std::string(data, size) == std::string("\1\0", 2))
            static_cast<WebTransfer*>(self)->m_request->closedByPeer = true;
        if (type != CURLINFO_HEADER_IN)
            static_cast<WebTransfer*>(self)->MayTakeMore(64);
        return 0;
    };
    const auto onOpen = [](void* self, curl_socket_t socket, curlsocktype)
    {
        static_cast<WebTransfer*>(self)->m_sockets[socket] = GetInode(socket);
        return static_cast<int>(CURL_SOCKOPT_OK);
    };
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &WebTransfer::OnHeader);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &WebTransfer::OnBody);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, +onProgress);
    curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, +onDebug);
    curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, +onOpen);
    for (const CURLoption option : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_XFERINFODATA,
                                    CURLOPT_DEBUGDATA, CURLOPT_SOCKOPTDATA})
        curl_easy_setopt(easy, option, this);
}

void WebTransfer::StopRequest()
{
    if (!m_request)
        return;
    curl_easy_setopt(m_request->easy.get(), CURLOPT_VERBOSE, 0L);
    curl_multi_remove_handle(m_multi.get(), m_request->easy.get());
}

// Ends every connection at once, as if the server had closed it, and drops what has arrived on it.
// When useless input comes without end, libcurl's functions return only then.
void WebTransfer::HangUp() const
{
    char rest[16384];
    for (const auto& [socket, inode] : m_sockets)
        if (GetInode(socket) == inode)
            for (shutdown(socket, SHUT_RDWR); recv(socket, rest, sizeof(rest), MSG_DONTWAIT) > 0;)
                continue;
}

// Sends a request and waits until the answer can be judged or no answer will come.
WebTransfer::Verdict WebTransfer::Ask(const std::string& range)
{
    ++m_attempt;
    m_redirects = 0;
    do
    {
        StartRequest(range);
        for (Advance(); !m_request->answered && !m_request->ended && !m_stop; Advance())
            Wait(POLL_INTERVAL);
    } while (m_request->upgraded && m_request->result == CURLE_TOO_MANY_REDIRECTS &&
             m_address.MoveTo(GetWebInfo<char*>(m_request->easy.get(), CURLINFO_REDIRECT_URL)));
    if (m_request->answered) // not by a redirect that was refused
        m_address.MoveTo(GetWebInfo<char*>(m_request->easy.get(), CURLINFO_EFFECTIVE_URL));
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
        m_request->answered |= m_request->result == CURLE_OK && Speaks("ftp");
    }
}

void WebTransfer::Wait(milliseconds time)
{
    curl_multi_poll(m_multi.get(), nullptr, 0, static_cast<int>(time.count()), nullptr);
    MayGoOn();
}

// Judges the current answer once there is one.
WebTransfer::Verdict WebTransfer::Judge()
{
    if (m_request->answered && m_request->verdict == Verdict::None)
        m_request->verdict = m_resource.Judge(m_request->easy.get(), m_received);
    return m_request->verdict;
}

// Adds some of the answer's body to the buffer, after comparing what was received before. Returns
// false if nothing more is wanted of the answer.
bool WebTransfer::Take(const char* data, size_t size)
{
    if (Judge() != Verdict::Accept)
        return false;
    curl_off_t& known = m_request->known;
    const auto now = Clock::now();
    m_lastArrival =
        known > 0 ? std::min(now, m_lastArrival + COMPARE_TIME * static_cast<long>(size)) : now;
    if (known > 0)
    {
        const size_t part = std::min(size, static_cast<size_t>(known));
        XXH3_64bits_update(m_hash.get(), data, part);
        known -= static_cast<curl_off_t>(part);
        if (known == 0 && XXH3_64bits_digest(m_hash.get()) != m_expected)
        {
            m_request->verdict = Verdict::Refuse;
            return Fail("the file on the server has changed");
        }
        data += part;
        size -= part;
    }
    // What comes after the end that the Content-Range tells is no more of the resource.
    const curl_off_t end = m_resource.GetEnd();
    if (end >= 0)
        size = std::min(size, static_cast<size_t>(end - m_received));
    if (!m_resource.IsResumable())
        XXH3_64bits_update(m_hash.get(), data, size);
    m_buffer.append(data, size);
    m_received += static_cast<curl_off_t>(size);
    if (m_buffer.size() >= BUFFER_LIMIT)
        curl_easy_pause(m_request->easy.get(), CURLPAUSE_RECV);
    return m_received != end;
}

// Returns whether all of the resource has arrived. Only the server knows which part is the last.
bool WebTransfer::IsComplete() const
{
    if (m_received == m_resource.GetSize() || m_request->verdict == Verdict::Complete)
        return true;
    // Over TLS, an answer that ends with its connection may have been cut (RFC 9112, section 9.8).
    const bool cut = Speaks("https") && !m_request->closedByPeer &&
                     GetWebHeader(m_request->easy.get(), "Transfer-Encoding").empty();
    return m_request->ended && m_request->verdict == Verdict::Accept && !cut &&
           m_request->result == CURLE_OK && m_request->known == 0 && m_resource.GetSize() < 0 &&
           m_resource.GetEnd() < 0;
}

// Asks for the rest until an answer is acceptable. Returns false if there is none.
bool WebTransfer::Resume()
{
    if (m_request->verdict == Verdict::Refuse)
        return false;
    m_triesInVain = m_received > m_reached ? 0 : m_triesInVain + 1;
    if (m_received - m_reached >= REAL_PROGRESS)
        m_pause = milliseconds::zero();
    m_reached = m_received;
    for (;;)
    {
        Fail("stopped (" + GetReason() + ") after " + std::to_string(m_received) + " bytes");
        if (!m_resource.IsResumable() && m_triesInVain == MAX_TRIES_IN_VAIN)
            return Fail("fetched anew too often without getting further");
        m_pause = std::clamp(2 * m_pause, FIRST_PAUSE, LAST_PAUSE);
        for (const auto end = Clock::now() + m_pause; MayGoOn() && Clock::now() < end;)
            std::this_thread::sleep_for(POLL_INTERVAL);
        if (m_stop)
            return Fail(m_stop);
        const Verdict verdict =
            Ask(m_resource.IsResumable() ? std::to_string(m_received) + "-" : "");
        if (verdict == Verdict::Accept || verdict == Verdict::Complete)
            return true;
        if (verdict == Verdict::Refuse)
            return Fail("cannot be resumed: " + GetReason());
    }
}

std::string WebTransfer::GetReason() const
{
    if (m_stop)
        return m_stop;
    if (m_request->verdict != Verdict::None && m_request->verdict != Verdict::Accept)
        return "status " +
               std::to_string(GetWebInfo<long>(m_request->easy.get(), CURLINFO_RESPONSE_CODE));
    if (m_request->result == CURLE_OK)
        return "the answer ended early";
    const std::string message = m_request->error; // may contain a proxy's password
    const bool shown = !message.empty() && message.find('@') == std::string::npos;
    return shown ? message : curl_easy_strerror(m_request->result);
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
    CURL* const easy = request.easy.get();
    request.headerSize += size;
    request.closedByPeer = false; // that was the connection of a redirect
    if (!transfer.MayGoOn() || request.headerSize > HEADER_LIMIT)
        return 0;
    if (transfer.Speaks("ftp")) // its replies do not bring the answer nearer
        return size;
    // A header line counts as an arrival, because each redirect may take its time.
    if (!transfer.m_resource.IsKnown())
        transfer.m_lastArrival = Clock::now();
    // libcurl ends a header at such a line. Another follows an interim answer (1xx) or a redirect.
    const long status = GetWebInfo<long>(easy, CURLINFO_RESPONSE_CODE);
    if ((data[0] != '\r' && data[0] != '\n') || status < 200)
        return size;

    const bool moved = (status >= 301 && status <= 303) || status == 307 || status == 308;
    const std::string target = GetWebHeader(easy, "Location");
    request.answered =
        !moved || request.headers || transfer.m_address.GetScheme() == "ftp" || target.empty();
    if (request.answered || transfer.m_redirects++ == 10)
        return size;
    // libcurl would also follow other statuses, and a redirect whose header is cut. From http to
    // https, another request follows: libcurl would tell its proxy the password of the former one.
    request.upgraded = transfer.Speaks("http") && curl_strnequal(target.c_str(), "https:", 6);
    const long followed = GetWebInfo<long>(easy, CURLINFO_REDIRECT_COUNT);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, request.upgraded ? 0L : followed + 1);
    return size;
}

size_t WebTransfer::OnBody(char* data, size_t, size_t size, void* self)
{
    WebTransfer& transfer = *static_cast<WebTransfer*>(self);
    transfer.m_request->answered = true;
    // A few bytes of the body do not end a flood, but small records of TLS are none.
    int& calls = transfer.m_request->callsInVain;
    calls -= std::min(calls, 16 * static_cast<int>(size));
    return transfer.MayGoOn() && transfer.Take(data, size) ? size : 0;
}
