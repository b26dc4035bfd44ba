#pragma once

// A transport of JSON requests to the REST web service: RestConnector on current systems, RestConnector_Old on
// OS 10.7 to 10.9. The façade makes a new one for every request; it lives until its completion has run.

#include "rest/JsonRequest.h"
#include "rest/TransportStatus.h"

#include <string>
#include <string_view>

namespace rest {

class JsonTransport {
public:
    virtual ~JsonTransport() = default;

    // Posts the JSON `body` to the server method at `path` (relative to the base URL). The outcome arrives through
    // `finished`, at most once: at once on the calling thread when the network is not reachable (nothing, 1) or the
    // parameters were not JSON (error, 4), later on the transport's completion queue otherwise.
    virtual void startAsyncTask(std::string_view path, JsonBody body, ProgressHandler progress, Finished finished)
        = 0;

    // The same with `params` written as the body (writeJsonBody).
    void startAsyncTask(
        std::string_view path, const platform::Value& params, ProgressHandler progress, Finished finished)
    {
        startAsyncTask(path, writeJsonBody(params), std::move(progress), std::move(finished));
    }

    // As "%@" prints the transport: "<ClassName: 0x...>".
    virtual std::string description() const = 0;
};

// "<className: address>", as the framework describes an object.
std::string describeObject(const char* className, const void* object);

}
