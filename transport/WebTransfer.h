// One resource fetched over http, https (RFC 9110) or ftp, as a stream.
//
// Redirects (301, 302, 303, 307, 308) are followed up to 10 times, to http and https only and never
// from https back to http; credentials stay with the host they were given for.
//
// A transfer whose connection is cut goes on where it stopped. Where the server takes byte ranges
// and gave a validator, the rest is asked for; else the resource is fetched from its start again,
// and what comes is compared with what was received before. The bytes of two different resources
// are never joined.
//
// An object belongs to one thread, on which all of its operations are called. libcurl has been
// initialised (wxWebModule). Why a transfer fails goes to the toolkit's verbose log.

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
    // timeout    bounds the time in which nothing arrives: of the answer's header, then of the
    //            resource
    // cancelled  asked at least every 50 milliseconds; once it returns true, the call under way
    //            ends
    WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled);
    ~WebTransfer() override;

    // Asks for a URL (RFC 3986), as UTF-8, which may hold user:password@. Returns whether the
    // answer is a success with a body, which can be read then. To be called once.
    bool Open(const std::string& url);

    // Size of the body in bytes, all ones when it is not known. Valid once Open() has succeeded.
    size_t GetSize() const override { return static_cast<size_t>(m_resource.GetSize()); }

    // Returns whether a block of 4096 bytes, or what is left, can be read at once, which is waited
    // for 2 milliseconds at most.
    bool CanRead() const override;

protected:
    // Waits for some of the body. The stream ends with the body, or when the rest of it cannot be
    // had.
    size_t OnSysRead(void* buffer, size_t size) override;

private:
    // What to make of an answer, known when its header is complete.
    enum class Verdict
    {
        None, // there is no answer yet
        Accept,
        TryAgain, // the server is in trouble that may pass
        Complete, // there is no more of the resource
        Refuse
    };

    using Clock = std::chrono::steady_clock;

    bool MayGoOn();
    bool MayTakeMore();
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
        // libcurl bounds the size of headers.
        if (type != CURLINFO_HEADER_IN)
            static_cast<WebTransfer*>(self)->MayTakeMore();
        return 0;
    }

    const std::chrono::seconds m_timeout;
    const std::function<bool()> m_cancelled;
    Clock::time_point m_lastArrival = Clock::now(); // of bytes of the resource
    const char* m_stop = nullptr;                   // why the transfer is not to go on

    CurlSockets m_sockets;
    const CurlMulti m_multi;
    WebAddress m_address;
    int m_attempt = 0;

    // The request under way and its answer.
    struct Request
    {
        char error[CURL_ERROR_SIZE] = ""; // by libcurl
        CurlHeaders headers;
        CurlEasy easy{curl_easy_init()};
        bool answered = false; // the header is complete, redirects aside; or there is some body
        bool ended = false;
        CURLcode result = CURLE_OK;
        Verdict verdict = Verdict::None;
        curl_off_t known = 0; // bytes left that were received before
        int callsInVain = 0;  // from libcurl, since there last was some of the body
    };
    std::unique_ptr<Request> m_request;

    // The resource, from its first answer on.
    bool m_opened = false;
    WebResource m_resource;
    curl_off_t m_received = 0;
    const std::unique_ptr<XXH3_state_t, CurlCleanup<XXH3_freeState>> m_hash; // while not resumable
    XXH64_hash_t m_expected = 0; // the hash of what was received, while that is compared

    // What has arrived and was not read yet starts at m_readPosition.
    std::vector<char> m_buffer;
    size_t m_readPosition = 0;

    // The tries to go on.
    curl_off_t m_reached = 0; // bytes received before the last one
    int m_triesInVain = 0;
    std::chrono::milliseconds m_pause;
};
