// Fetches one resource over http, https (RFC 9110) or ftp, and is a stream of its bytes.
//
// It follows redirects (301, 302, 303, 307, 308) up to 10 times, to http and https only and never
// from https to http. Credentials go only to the host they were given for.
//
// When the connection breaks, the transfer goes on where it stopped. If the server offers byte
// ranges and gave a validator, it asks for the rest. Otherwise it fetches the resource from the
// start and compares; it gives up after three attempts in a row that get no further. It never joins
// the bytes of two different resources.
//
// An object belongs to one thread, on which all of its operations are called. wxWebModule must have
// initialised libcurl. The toolkit's verbose log says why a transfer fails.

#pragma once

#include "transport/CurlHandles.h"
#include "transport/WebAddress.h"
#include "transport/WebResource.h"

#include <wx/stream.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <xxhash.h>

class WebTransfer : public wxInputStream
{
public:
    // timeout    how long nothing may arrive: at first nothing of an answer's header (over ftp, of
    //            the file), afterwards nothing of the resource
    // cancelled  called at least every 50 milliseconds during each operation, on the same thread;
    //            once it returns true, the operation ends as if nothing had arrived for too long
    WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled);
    ~WebTransfer() override;

    // Asks for a URL (RFC 3986) in UTF-8, which may contain user:password@. Returns true if the
    // answer is a success with a body, which may be empty; only then read from the stream. Returns
    // false for an address that is not valid, an unreachable or refused server, any status but 200
    // to 299, and 204, 205 and 206. Call it once.
    bool Open(const std::string& url);

    // Returns the size of the whole body in bytes, or the largest size_t if it is not known. Valid
    // after Open() has succeeded. The stream may end before that many bytes.
    size_t GetSize() const override { return static_cast<size_t>(m_resource.GetSize()); }

    // Waits for at most 2 milliseconds. Returns whether a block of 4096 bytes, or all the rest, can
    // be read at once.
    bool CanRead() const override;

protected:
    // Waits until some of the body can be read. The stream ends at the end of the body, or earlier
    // when it is cancelled, nothing arrives in time, or the rest cannot be fetched.
    size_t OnSysRead(void* buffer, size_t size) override;

private:
    // How an answer is judged, as soon as its header is complete.
    enum class Verdict
    {
        None, // there is no answer yet
        Accept,
        TryAgain, // the server has a problem that may be temporary
        Complete, // all of the resource has arrived already
        Refuse
    };

    using Clock = std::chrono::steady_clock;

    bool MayGoOn();
    bool MayTakeMore(int calls = 1);
    void StartRequest(const std::string& range);
    void StopRequest();
    Verdict Ask(const std::string& range = std::string());
    void Advance();
    void Wait(std::chrono::milliseconds time);
    size_t Fill();
    Verdict Judge();
    bool Take(const char* data, size_t size);
    bool IsCut() const;
    bool Resume();
    bool Fail(const std::string& reason) const;
    std::string GetReason() const;
    long GetStatus() const;

    static size_t OnHeader(char* data, size_t one, size_t size, void* self);
    static size_t OnBody(char* data, size_t one, size_t size, void* self);
    static int OnProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
    {
        return static_cast<WebTransfer*>(self)->MayTakeMore() ? 0 : 1;
    }
    static int OnDebug(CURL*, curl_infotype type, char*, size_t, void* self)
    {
        // libcurl itself limits the size of headers.
        if (type != CURLINFO_HEADER_IN)
            static_cast<WebTransfer*>(self)->MayTakeMore(64); // for a piece, not for a byte
        return 0;
    }

    const std::chrono::seconds m_timeout;
    const std::function<bool()> m_cancelled;
    Clock::time_point m_lastArrival = Clock::now(); // of a header line or of the resource
    Clock::time_point m_lastTaken;                  // of any bytes of the body
    const char* m_stop = nullptr;                   // why the transfer must end, or null

    CurlSockets m_sockets;
    const CurlMulti m_multi;
    WebAddress m_address;
    int m_attempt = 0;

    // The current request and its answer.
    struct Request
    {
        char error[CURL_ERROR_SIZE] = ""; // libcurl's message
        CurlHeaders headers;
        CurlEasy easy{curl_easy_init()};
        bool answered = false; // the last header is complete, or some of the body has arrived
        bool ended = false;
        CURLcode result = CURLE_OK;
        Verdict verdict = Verdict::None;
        curl_off_t known = 0; // bytes still to compare with those received before
        int callsInVain = 0;  // by libcurl, since some of the body last arrived
    };
    std::unique_ptr<Request> m_request;

    // The resource, after its first answer.
    bool m_opened = false;
    WebResource m_resource;
    curl_off_t m_received = 0;
    // Unless it is resumable: the hash of the received bytes, and what it was before the attempt.
    const std::unique_ptr<XXH3_state_t, CurlCleanup<XXH3_freeState>> m_hash;
    XXH64_hash_t m_expected = 0;

    // The bytes that have arrived but were not read yet start at m_readPosition.
    std::vector<char> m_buffer;
    size_t m_readPosition = 0;

    // The attempts to go on.
    curl_off_t m_reached = 0; // bytes received before the last attempt
    int m_triesInVain = 0;
    std::chrono::milliseconds m_pause;
};
