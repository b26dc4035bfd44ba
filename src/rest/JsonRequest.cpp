#include "rest/JsonRequest.h"

#include "platform/HttpErrors.h"
#include "platform/Json.h"
#include "platform/Log.h"
#include "rest/RequestTimeout.h"

namespace rest {

namespace {

platform::http::Request makeJsonRequest(const std::optional<std::string>& url, const std::string& body)
{
    // The URL system's cache policy 0 (the protocol's own) is what platform::http always does: it keeps no cache.
    platform::http::Request request;
    request.url = url.value_or(std::string());
    request.timeoutInterval = requestTimeout();
    request.setValue(std::to_string(body.size()), "Content-Length");
    request.addValue("application/json", "Content-Type");
    request.httpMethod = "POST";
    request.httpBody.assign(body.begin(), body.end());
    return request;
}

}

std::optional<platform::http::Request> prepareJsonRequest(const platform::Value& params,
    const std::optional<std::string>& url, const char* logFormat,
    const std::function<void(const platform::Error& error)>& failed)
{
    std::optional<std::string> text;
    std::optional<platform::Error> error;
    try {
        text = platform::writeJson(params, { .prettyPrinted = true });
    } catch (const platform::JsonError& writingError) {
        error = writingError.error();
    }
    if (logFormat)
        platform::log(logFormat, text ? *text : "(null)");
    if (error) {
        failed(*error);
        return std::nullopt;
    }
    return makeJsonRequest(url, *text);
}

std::optional<platform::http::Request> prepareJsonRequest(
    const platform::Value& params, const std::optional<std::string>& url, const Finished& finished)
{
    return prepareJsonRequest(
        params, url, "Json String %@", [&](const platform::Error& error) { finished(error, TransportRequestNotJson); });
}

std::variant<platform::Value, platform::Error> parseReply(const std::optional<platform::Bytes>& body)
{
    const std::string_view text
        = body ? std::string_view(reinterpret_cast<const char*>(body->data()), body->size()) : std::string_view();
    try {
        return platform::readJson(text);
    } catch (const platform::JsonError& error) {
        return error.error();
    }
}

void finishJsonRequest(const std::string& url, const std::optional<platform::Error>& error,
    const std::optional<platform::Bytes>& body, const Finished& finished)
{
    if (error) {
        platform::log("error code ....%@", *error);
        platform::log("The request to %@ failed", url.empty() ? std::string_view("(no URL)") : std::string_view(url));
        // The URL system's "unknown" error ends the request silently: whoever waits for it waits in vain.
        if (error->code == platform::http::URLErrorUnknown) {
            platform::log("error code at rest connector strt async task......");
            return;
        }
        finished(*error, TransportFailed);
        platform::log("network error");
        return;
    }
    const auto reply = parseReply(body);
    const auto* parsed = std::get_if<platform::Value>(&reply);
    platform::log("response %@", parsed);
    if (parsed)
        finished(*parsed, TransportSucceeded);
    else
        finished(std::get<platform::Error>(reply), TransportReplyNotJson);
}

}
