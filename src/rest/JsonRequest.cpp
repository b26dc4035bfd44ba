#include "rest/JsonRequest.h"

#include "rest/ReplyStatus.h"

#include "platform/HttpErrors.h"
#include "platform/Json.h"
#include "platform/Log.h"
#include "rest/RequestTimeout.h"

namespace rest {

namespace {

const platform::JsonWriteOptions bodyOptions { .prettyPrinted = true };

platform::http::Request makeJsonRequest(const std::optional<std::string>& url, std::string body)
{
    // The URL system's cache policy 0 (the protocol's own) is what platform::http always does: it keeps no cache.
    platform::http::Request request;
    request.url = url.value_or(std::string());
    request.timeoutInterval = requestTimeout();
    request.setValue(std::to_string(body.size()), "Content-Length");
    request.addValue("application/json", "Content-Type");
    request.httpMethod = "POST";
    request.httpBody = std::move(body);
    return request;
}

}

JsonBody writeJsonBody(const platform::Value& params)
{
    try {
        return platform::writeJson(params, bodyOptions);
    } catch (const platform::JsonError& writingError) {
        return writingError.error();
    }
}

JsonBody writeJsonListBody(std::size_t count, const std::function<platform::Value(std::size_t)>& elementAt)
{
    platform::JsonArrayWriter writer(bodyOptions);
    std::optional<platform::Error> error;
    for (std::size_t index = 0; index < count; ++index) {
        const platform::Value element = elementAt(index);
        if (error)
            continue;
        try {
            writer.append(element);
        } catch (const platform::JsonError& writingError) {
            error = writingError.error();
        }
    }
    if (error)
        return *error;
    return writer.finish();
}

std::optional<platform::http::Request> prepareJsonRequest(JsonBody body, const std::optional<std::string>& url,
    const char* logFormat, const std::function<void(const platform::Error& error)>& failed)
{
    std::string* text = std::get_if<std::string>(&body);
    if (logFormat)
        platform::log(logFormat, text ? std::string_view(*text) : std::string_view("(null)"));
    if (!text) {
        failed(std::get<platform::Error>(body));
        return std::nullopt;
    }
    return makeJsonRequest(url, std::move(*text));
}

std::optional<platform::http::Request> prepareJsonRequest(
    JsonBody body, const std::optional<std::string>& url, const Finished& finished)
{
    return prepareJsonRequest(std::move(body), url, "Json String %@",
        [&](const platform::Error& error) { finished(error, TransportRequestNotJson); });
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
    const std::optional<platform::Bytes>& body, const std::optional<platform::http::Response>& response,
    const Finished& finished)
{
    ReplyStatusScope replyStatus(response ? std::optional<long>(response->statusCode) : std::nullopt);
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
    auto reply = parseReply(body);
    auto* parsed = std::get_if<platform::Value>(&reply);
    platform::log("response %@", parsed);
    if (parsed)
        finished(std::move(*parsed), TransportSucceeded);
    else
        finished(std::get<platform::Error>(reply), TransportReplyNotJson);
}

}
