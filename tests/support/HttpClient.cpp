#include "support/HttpClient.h"

#include "platform/Json.h"

#include <gtest/gtest.h>

namespace testsupport {

namespace {

struct CurlLibrary {
    CurlLibrary() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlLibrary() { curl_global_cleanup(); }
};

size_t collect(char* data, size_t size, size_t count, void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

}

platform::Value HttpResult::json() const
{
    try {
        return platform::readJson(body);
    } catch (const platform::JsonError& error) {
        ADD_FAILURE() << "the reply is not JSON (" << error.reason() << "): " << body;
        return platform::Value::null();
    }
}

bool HttpResult::isJson() const
{
    try {
        platform::readJson(body);
        return true;
    } catch (const platform::JsonError&) {
        return false;
    }
}

HttpResult send(const HttpRequest& request)
{
    // curl_global_init is not thread-safe; a function-local static runs it once, before the first request.
    static CurlLibrary library;
    CURL* curl = curl_easy_init();
    curl_slist* headers = nullptr;
    for (const auto& header : request.headers)
        headers = curl_slist_append(headers, header.c_str());

    HttpResult result;
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    if (request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);

    const auto start = std::chrono::steady_clock::now();
    result.code = curl_easy_perform(curl);
    result.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.status);
    const char* contentType = nullptr;
    if (curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &contentType) == CURLE_OK && contentType)
        result.contentType = contentType;

    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return result;
}

HttpResult post(const std::string& url, const std::string& body)
{
    return send({ .url = url, .body = body });
}

HttpResult postJson(const std::string& url, const platform::Value& body)
{
    return post(url, platform::writeJson(body));
}

HttpResult get(const std::string& url)
{
    return send({ .method = "GET", .url = url, .headers = {} });
}

}
