#pragma once

// The pieces of a JSON request that both transports (RestConnector, RestConnector_Old) share: writing the
// parameters, the POST request, reading the reply, and the completion step that turns the exchange's outcome into
// a transport status.

#include "rest/TransportStatus.h"

#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace rest {

// Writes `params` as pretty-printed JSON, logs the text with `logFormat` (when there is one) and builds the POST of
// it to `url`: time-out requestTimeout(), "Content-Length" set to the body's byte count, "Content-Type"
// "application/json" added. A writing error goes to `failed`, at once, and no request is made. Without a URL the
// request goes out with none, and the HTTP layer fails it as a bad URL (-1000).
std::optional<platform::http::Request> prepareJsonRequest(const platform::Value& params,
    const std::optional<std::string>& url, const char* logFormat,
    const std::function<void(const platform::Error& error)>& failed);

// What both JSON transports do once the network is known to be reachable: prepareJsonRequest with the log line
// "Json String %@", a writing error handed to `finished` as (error, 4).
std::optional<platform::http::Request> prepareJsonRequest(
    const platform::Value& params, const std::optional<std::string>& url, const Finished& finished);

// The reply body parsed as JSON (objects and arrays only), or the parse error. A missing body parses as empty.
std::variant<platform::Value, platform::Error> parseReply(const std::optional<platform::Bytes>& body);

// The completion step of a JSON request, run on the transport's completion queue:
// - a transport error is logged ("error code ....%@"), followed by a line naming the request's URL, so that a wrong
//   server address shows in the log; one of code -1 is logged a second time and ends the step
//   without calling `finished`; any other is handed on as (error, 2), then "network error" is logged;
// - otherwise the reply is parsed and logged ("response %@"), and `finished` gets (parse error, 5) or
//   (parsed reply, 0).
// The HTTP status code is never looked at: a JSON reply with status 500 is a success.
void finishJsonRequest(const std::string& url, const std::optional<platform::Error>& error,
    const std::optional<platform::Bytes>& body, const Finished& finished);

}
