#pragma once

// platform::http: the values an HTTP exchange is described with (session configuration, request, response, result).
// The sessions and tasks that carry them out are in HttpSession.h.

#include "platform/Error.h"
#include "platform/Value.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::http {

using Seconds = std::chrono::duration<double>;
// Header fields in the order they were set; names compare without regard to case.
using Headers = std::vector<std::pair<std::string, std::string>>;

// The value of the first field named `name` (any case), or null.
const std::string* findHeader(const Headers& headers, std::string_view name);

// Settings shared by every task of one session.
struct Configuration {
    // Added to every request that does not set a field of the same name itself.
    Headers additionalHeaders;
    // Recorded and kept with the session; Linux has no cellular policy for it to change.
    bool allowsCellularAccess = true;
    // How long a task may wait for more data (sent or received) before it fails with URLErrorTimedOut.
    Seconds timeoutIntervalForRequest { 60 };
    // How long a whole task may take, waiting and transferring, before it fails with URLErrorTimedOut.
    Seconds timeoutIntervalForResource { 7 * 24 * 3600 };
    // How many tasks of the session may be talking to one host (host and port) at a time; the others wait.
    std::size_t httpMaximumConnectionsPerHost = 6;

    // The settings a session gets unless told otherwise (the values above).
    static Configuration defaultConfiguration() { return {}; }
};

struct Request {
    std::string url;
    std::string httpMethod = "GET";
    Headers headers;
    // The body as it is sent: text, so that a JSON body is moved in as it was written, not copied.
    std::string httpBody;
    // The request's own wait-for-more-data limit; the task uses the shorter of this and the session's.
    Seconds timeoutInterval { 60 };

    // Sets the field, replacing any value it had.
    void setValue(std::string value, std::string_view field);
    // Appends the value to the field, separated by a comma when the field already has one.
    void addValue(std::string_view value, std::string_view field);
};

struct Response {
    std::string url;
    long statusCode = 0;
    Headers allHeaderFields;

    // As "%@" prints a response: { URL: <url> } { Status Code: <code>, Headers {...} }
    std::string description() const;
};

// What a task hands to its completion handler. On success `error` is absent and `data` holds the reply body (data
// and upload tasks) or `location` the file the body was written to (download tasks; the file is removed once the
// handler has returned). On failure only `error` is sure to be set; `response` is set whenever the reply's head
// arrived.
struct Result {
    std::optional<Bytes> data;
    std::optional<std::filesystem::path> location;
    std::optional<Response> response;
    std::optional<Error> error;

    static Result failure(Error error)
    {
        Result result;
        result.error = std::move(error);
        return result;
    }
};

using CompletionHandler = std::function<void(const Result& result)>;

// The body of a streamed upload: fills `buffer` with up to `capacity` bytes and answers how many it wrote; 0 ends
// the body. Called on the HTTP I/O thread.
using BodyStream = std::function<std::size_t(char* buffer, std::size_t capacity)>;

// What "%@" prints for a response that may be missing.
std::string describe(const Response& response);
std::string describe(const std::optional<Response>& response);

}
