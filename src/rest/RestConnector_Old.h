#pragma once

// RestConnector_Old: the JSON request transport on OS 10.7 to 10.9, where the façade uses it instead of
// RestConnector. It sends the same request with the same completion contract and statuses, as a URL connection
// request delivered on an operation queue made for the request: its completion runs there, on a background thread,
// not on the main queue. There is no session, so no session-level headers, resource time-out or connection limit,
// and no task controls or stream transfers. After every completion, last, the connector cancels its queue's last
// operation (by then the completion's own, which runs to its end).
//
// Connectors are made with std::make_shared; the completion holds the connector until it has run.

#include "rest/JsonTransport.h"
#include "rest/OperationQueue.h"
#include "rest/URLConnection.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace rest {

class RestConnector_Old : public JsonTransport, public std::enable_shared_from_this<RestConnector_Old> {
public:
    // Made anew for each request; the completion runs on it.
    std::shared_ptr<OperationQueue> operationQueue;
    // Kept, never called.
    ProgressHandler progressHandler;
    // Never set by this class.
    std::shared_ptr<URLConnection> connection;

    std::optional<std::string> getAbsoluteURL(std::string_view path) const;

    // Not reachable: (nothing, 1) at once. Otherwise the body is logged ("Json String %@"); a writing error gives
    // (error, 4) at once; else the JSON is posted and the reply arrives on `operationQueue` as finishJsonRequest
    // describes (JsonRequest.h), followed by the cancel of the queue's last operation, also when `finished` was not
    // called (error -1).
    using JsonTransport::startAsyncTask;
    void startAsyncTask(std::string_view path, JsonBody body, ProgressHandler progress, Finished finished) override;

    std::string description() const override;
};

}
