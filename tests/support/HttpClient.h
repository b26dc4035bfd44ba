#pragma once

// A real HTTP client (libcurl) for talking to the server under test.

#include "platform/Value.h"

#include <chrono>
#include <string>
#include <vector>

#include <curl/curl.h>

namespace testsupport {

struct HttpResult {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body {};
    std::string contentType;
    std::chrono::milliseconds elapsed { 0 };

    // The body read as JSON; fails the calling test when it is not JSON.
    platform::Value json() const;
    bool isJson() const;
};

struct HttpRequest {
    std::string method = "POST";
    std::string url {};
    std::string body {};
    std::vector<std::string> headers { "Content-Type: application/json", "Accept: application/json" };
    std::chrono::milliseconds timeout { 30000 };
};

HttpResult send(const HttpRequest& request);
HttpResult post(const std::string& url, const std::string& body);
HttpResult postJson(const std::string& url, const platform::Value& body);
HttpResult get(const std::string& url);

}
