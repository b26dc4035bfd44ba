#pragma once

// The pieces of a JSON request that both transports (RestConnector, RestConnector_Old) share: writing the
// parameters, the POST request, reading the reply, and the completion step that turns the exchange's outcome into
// a transport status.

#include "rest/TransportStatus.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace rest {

// The JSON text of a request's parameters, pretty-printed as every request sends them, or why they are not JSON.
using JsonBody = std::variant<std::string, platform::Error>;

JsonBody writeJsonBody(const platform::Value& params);

// The body of a request whose parameters are a list, written as its elements are made one at a time by `elementAt`:
// the list and the elements' values never exist whole beside the text. Byte for byte what writeJsonBody gives for
// the whole list. What `elementAt` raises goes on to the caller; after a writing error the remaining elements are
// still made (so that they raise as making the whole list would), and the error is the body.
JsonBody writeJsonListBody(std::size_t count, const std::function<platform::Value(std::size_t)>& elementAt);

// Logs the body's text with `logFormat` (when there is one; "(null)" for a writing error) and builds the POST of it
// to `url`: time-out requestTimeout(), "Content-Length" set to the body's byte count, "Content-Type"
// "application/json" added; the text is moved into the request, not copied. A writing error goes to `failed`, at
// once, and no request is made. Without a URL the request goes out with none, and the HTTP layer fails it as a bad
// URL (-1000).
std::optional<platform::http::Request> prepareJsonRequest(JsonBody body, const std::optional<std::string>& url,
    const char* logFormat, const std::function<void(const platform::Error& error)>& failed);

// What both JSON transports do once the network is known to be reachable: prepareJsonRequest with the log line
// "Json String %@", a writing error handed to `finished` as (error, 4).
std::optional<platform::http::Request> prepareJsonRequest(
    JsonBody body, const std::optional<std::string>& url, const Finished& finished);

// The reply body parsed as JSON (objects and arrays only), or the parse error. A missing body parses as empty.
std::variant<platform::Value, platform::Error> parseReply(const std::optional<platform::Bytes>& body);

// The completion step of a JSON request, run on the transport's completion queue:
// - a transport error is logged ("error code ....%@"), followed by a line naming the request's URL, so that a wrong
//   server address shows in the log; one of code -1 is logged a second time and ends the step
//   without calling `finished`; any other is handed on as (error, 2), then "network error" is logged;
// - otherwise the reply is parsed and logged ("response %@"), and `finished` gets (parse error, 5) or
//   (parsed reply, 0).
// The HTTP status code is never looked at: a JSON reply with status 500 is a success. `response` (when its head
// arrived) only gives `finished` the reply's status through httpStatusOfReplyInCompletion (ReplyStatus.h).
void finishJsonRequest(const std::string& url, const std::optional<platform::Error>& error,
    const std::optional<platform::Bytes>& body, const std::optional<platform::http::Response>& response,
    const Finished& finished);

}
