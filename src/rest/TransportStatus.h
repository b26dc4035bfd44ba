#pragma once

// What the REST transports hand to their completions: a transport status and the objects that go with it.
//
// Every completion of a transport is called with an object (or two, for the stream download) and an unsigned 64-bit
// transport status. Callers tell success from failure by the status alone.

#include "platform/Error.h"
#include "platform/Http.h"
#include "platform/Value.h"

#include <cstdint>
#include <functional>
#include <variant>

namespace rest {

using TransportStatus = std::uint64_t;

enum : TransportStatus {
    // The request was sent and the reply received (and, for JSON requests, parsed).
    TransportSucceeded = 0,
    // The network is not reachable; nothing was sent.
    TransportNotReachable = 1,
    // The HTTP exchange failed; the object is the HTTP layer's error.
    TransportFailed = 2,
    // The request's parameters could not be written as JSON; nothing was sent.
    TransportRequestNotJson = 4,
    // The reply body is not JSON; the object is the parse error.
    TransportReplyNotJson = 5,
    // The answers of RestConnector's task controls.
    TransportTaskResumed = 6,
    TransportNoTaskToResume = 7,
    TransportPauseRequested = 8,
    TransportNoTaskToPause = 9,
    TransportNoTaskToClose = 10,
    TransportTaskCancelled = 11,
};

// An object a transport hands over: nothing, a value (the parsed JSON reply, or a reply body as data), an error,
// or the HTTP response of a stream download.
using TransportObject = std::variant<std::monostate, platform::Value, platform::Error, platform::http::Response>;

// Completion of a JSON request, a stream upload and the plain transfers. The object is handed over, so that a
// completion can let go of a large reply before it is done.
using Finished = std::function<void(TransportObject object, TransportStatus status)>;
// Completion of a stream download: (HTTP response, reply body) on success, (nothing, error or nothing) otherwise.
using StreamFinished
    = std::function<void(const TransportObject& first, const TransportObject& second, TransportStatus status)>;
// Progress of a transfer. Kept by the transports and never called.
using ProgressHandler = std::function<void(std::int64_t totalBytesWritten, std::int64_t totalBytesExpectedToWrite)>;

}
