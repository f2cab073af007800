// Owners that free libcurl's handles.

#pragma once

#include <curl/curl.h>

#include <memory>
#include <type_traits>

// An object that calls the function.
template <auto function>
using CurlCleanup = std::integral_constant<decltype(function), function>;

using CurlEasy = std::unique_ptr<CURL, CurlCleanup<curl_easy_cleanup>>;
using CurlMulti = std::unique_ptr<CURLM, CurlCleanup<curl_multi_cleanup>>;
using CurlUrl = std::unique_ptr<CURLU, CurlCleanup<curl_url_cleanup>>;
using CurlHeaders = std::unique_ptr<curl_slist, CurlCleanup<curl_slist_free_all>>;
using CurlText = std::unique_ptr<char, CurlCleanup<curl_free>>;
