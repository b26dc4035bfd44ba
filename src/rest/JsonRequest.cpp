#include "rest/JsonRequest.h"

#include "platform/HttpErrors.h"
#include "platform/Json.h"
#include "platform/Log.h"
#include "rest/RequestTimeout.h"

namespace rest {

JsonBody serializeParams(const platform::Value& params)
{
    try {
        return { platform::writeJson(params, { .prettyPrinted = true }), std::nullopt };
    } catch (const platform::JsonError& error) {
        return { std::nullopt, error.error() };
    }
}

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

std::optional<platform::http::Request> prepareJsonRequest(
    const platform::Value& params, const std::optional<std::string>& url, const Finished& finished)
{
    const JsonBody body = serializeParams(params);
    platform::log("Json String %@", body.text ? *body.text : "(null)");
    if (body.error) {
        finished(*body.error, TransportRequestNotJson);
        return std::nullopt;
    }
    return makeJsonRequest(url, *body.text);
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

void finishJsonRequest(
    const std::optional<platform::Error>& error, const std::optional<platform::Bytes>& body, const Finished& finished)
{
    if (error) {
        platform::log("error code ....%@", *error);
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
