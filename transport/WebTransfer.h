// One resource fetched over http or https (RFC 9110), pulled by its reader piece by piece.
//
// Redirects (301, 302, 303, 307, 308) are followed up to 10 times, to http and https only and never
// from https back to http; credentials stay with the host they were given for. A transfer whose
// connection is cut is resumed where it stopped, provided the server takes byte ranges and gave a
// validator; the bytes of two different resources are never joined.
//
// An object belongs to one thread, on which all of its operations are called. libcurl has been
// initialised (wxWebModule). Why a transfer fails goes to the toolkit's verbose log.

#pragma once

#include "transport/CurlHandles.h"
#include "transport/WebAddress.h"
#include "transport/WebResource.h"

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

class WebTransfer
{
public:
    // timeout    bounds connecting, waiting for the answer, and every silence; not the whole
    // cancelled  asked at least every 50 milliseconds; when it returns true, the call under way
    //            fails
    WebTransfer(std::chrono::seconds timeout, std::function<bool()> cancelled);
    ~WebTransfer();

    // Asks for an http or https URL (RFC 3986), as UTF-8, which may hold user:password@. Returns
    // whether the answer is a success (2xx), whose body can be read. To be called once.
    bool Open(const std::string& address);

    // Size of the body in bytes, -1 when it is not known. Valid once Open() has succeeded.
    curl_off_t GetSize() const { return m_resource.GetSize(); }

    // Waits for some of the body and copies it to buffer, at most size bytes. Returns how many, 0
    // at the end of the body or when the connection is gone for good.
    size_t Read(char* buffer, size_t size);

private:
    // What to make of an answer, known when its header is complete.
    enum class Verdict
    {
        None,     // the header is not complete yet
        Accept,   // the body is what was asked for
        Redirect, // the resource is somewhere else
        TryAgain, // the server is in trouble that may pass
        Refuse
    };

    void SetFromEnv(const char* variable, std::initializer_list<CURLoption> options);
    bool MoveTo(const std::string& address);
    bool FollowRedirect();
    void StartRequest();
    void StopRequest();
    bool AwaitAnswer();
    bool Advance();
    bool Pause(std::chrono::milliseconds pause);
    bool IsCut() const;
    bool Resume();
    Verdict Judge();
    std::string GetReason() const;
    bool Fail(const std::string& reason) const;

    static size_t OnHeader(char* data, size_t one, size_t size, void* self);
    static size_t OnBody(char* data, size_t one, size_t size, void* self);

    using Clock = std::chrono::steady_clock;

    const std::chrono::seconds m_timeout;
    const std::function<bool()> m_cancelled;
    WebAddress m_address;
    char m_error[CURL_ERROR_SIZE] = ""; // why the request under way failed, by libcurl
    const CurlMulti m_multi;
    const CurlEasy m_easy;
    CurlHeaders m_headers;
    int m_attempt = 0;
    int m_redirects = 0;

    // The request under way.
    bool m_active = false;
    bool m_ended = false;
    CURLcode m_result = CURLE_OK;
    Verdict m_verdict = Verdict::None;
    bool m_headerComplete = false;
    size_t m_headerSize = 0;
    bool m_connected = false;
    Clock::time_point m_lastArrival;

    // The resource, from its first answer on.
    bool m_opened = false;
    WebResource m_resource;
    curl_off_t m_received = 0;

    // What has arrived and was not read yet starts at m_readPosition.
    std::vector<char> m_buffer;
    size_t m_readPosition = 0;
    bool m_paused = false;
    bool m_over = false; // nothing more will arrive
};
