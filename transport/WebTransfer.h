// A stream of one resource's bytes, fetched over http, https (RFC 9110) or ftp.
//
// Redirects (301, 302, 303, 307, 308) are followed up to 10 times, to http and https only and never
// from https to http. Credentials go only to the host they were given for.
//
// A transfer that breaks goes on where it stopped. If the server offers byte ranges and gave a
// validator, it is asked for the rest. Otherwise the resource is fetched from the start and
// compared, until three answers in a row get no further. Bytes of two resources are never joined.
//
// One thread uses an object. The toolkit's verbose log says why a transfer fails.

#pragma once

#include "transport/CurlHandles.h"
#include "transport/WebAddress.h"
#include "transport/WebResource.h"

#include <wx/stream.h>

#include <chrono>
#include <functional>
#include <map>

#include <xxhash.h>

class WebTransfer : public wxInputStream
{
public:
    // timeout    how long nothing may arrive: at first no line of an answer's header (over ftp, no
    //            byte of the file), afterwards no new byte of the resource
    // cancelled  called on the same thread every 50 ms of an operation (over ftp, each second at
    //            its end); once it returns true, that ends as if nothing had arrived for too long
    WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled)
        : m_timeout(timeout), m_cancelled(std::move(cancelled))
    {
    }
    ~WebTransfer() override;

    // Asks for a URL (RFC 3986) in UTF-8, which may contain user:password@. Returns true if the
    // answer has a body, which may be empty, and a status from 200 to 299 but not 204, 205 or 206;
    // only then read from the stream. Call it once.
    bool Open(const std::string& url);

    // Returns the size of the whole body in bytes, or the largest size_t if it is not known.
    size_t GetSize() const override { return static_cast<size_t>(m_resource.GetSize()); }

    // Waits for at most 2 milliseconds. Returns whether a block of 4096 bytes, or all the rest, can
    // be read at once.
    bool CanRead() const override;

protected:
    // Waits until some of the body can be read. At the end of the body, the error is wxSTREAM_EOF.
    // It is wxSTREAM_READ_ERROR if the stream ends earlier, because it is cancelled, nothing
    // arrives in time, or the rest cannot be fetched.
    size_t OnSysRead(void* buffer, size_t size) override;

private:
    using Verdict = WebResource::Verdict;
    using Clock = std::chrono::steady_clock;

    bool MayGoOn();
    bool MayTakeMore(int calls = 1);
    void StartRequest(const std::string& range);
    void SetCallbacks(CURL* easy);
    void StopRequest();
    void HangUp() const;
    Verdict Ask(const std::string& range = std::string());
    void Advance();
    void Wait(std::chrono::milliseconds time);
    size_t Fill();
    Verdict Judge();
    bool Take(const char* data, size_t size);
    bool IsComplete() const;
    // Returns whether the last connection used this scheme; a proxy is asked for ftp over http.
    bool Speaks(const char* scheme) const
    {
        return curl_strequal(GetWebInfo<char*>(m_request->easy.get(), CURLINFO_SCHEME), scheme);
    }
    bool Resume();
    bool Fail(const std::string& reason) const;
    std::string GetReason() const;

    static size_t OnHeader(char* data, size_t one, size_t size, void* self);
    static size_t OnBody(char* data, size_t one, size_t size, void* self);

    const std::chrono::seconds m_timeout;
    const std::function<bool()> m_cancelled;
    Clock::time_point m_lastArrival = Clock::now(); // of a header line or of the resource
    const char* m_stop = nullptr;                   // why the transfer must end, or null

    std::map<curl_socket_t, unsigned long long> m_sockets; // opened by libcurl, with their inodes
    const CurlMulti m_multi{curl_multi_init()};
    WebAddress m_address;
    int m_attempt = 0, m_redirects = 0; // of the attempt

    // The current request and its answer.
    struct Request
    {
        char error[CURL_ERROR_SIZE] = ""; // libcurl's message
        CurlHeaders headers;
        CurlEasy easy{curl_easy_init()};
        bool answered = false; // the last header is complete, or some of the body has arrived
        bool upgraded = false; // a redirect leads from http to https
        bool ended = false;
        bool closedByPeer = false; // over TLS
        CURLcode result = CURLE_OK;
        Verdict verdict = Verdict::None;
        curl_off_t known = 0; // bytes still to compare with those received before
        int callsInVain = 0;  // libcurl's calls without any of the body, by weight
        size_t headerSize = 0;
    };
    std::unique_ptr<Request> m_request;

    // The resource and what has arrived of it.
    WebResource m_resource;
    curl_off_t m_received = 0;
    // Unless it is resumable: the hash of the received bytes, and what it was before the attempt.
    const std::unique_ptr<XXH3_state_t, CurlCleanup<XXH3_freeState>> m_hash{XXH3_createState()};
    XXH64_hash_t m_expected = 0;

    // The bytes that have arrived but were not read yet start at m_readPosition.
    std::string m_buffer;
    size_t m_readPosition = 0;

    curl_off_t m_reached = 0; // bytes received before the last attempt to go on
    int m_triesInVain = 0;
    std::chrono::milliseconds m_pause{0};
};
