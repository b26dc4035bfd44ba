#include "rest/RestConnector_Old.h"

#include "rest/JsonRequest.h"
#include "rest/Reachability.h"
#include "rest/RestURL.h"

namespace rest {

std::optional<std::string> RestConnector_Old::getAbsoluteURL(std::string_view path) const
{
    return absoluteURL(path);
}

void RestConnector_Old::startAsyncTask(
    std::string_view path, JsonBody body, ProgressHandler progress, Finished finished)
{
    if (!Reachability::isReachable()) {
        finished(std::monostate(), TransportNotReachable);
        return;
    }
    progressHandler = std::move(progress);
    const auto request = prepareJsonRequest(std::move(body), getAbsoluteURL(path), finished);
    if (!request)
        return;
    operationQueue = std::make_shared<OperationQueue>("RestConnector_Old");
    URLConnection::sendAsynchronousRequest(*request, operationQueue,
        [self = shared_from_this(), url = request->url, finished = std::move(finished)](
            const std::optional<platform::http::Response>& response, const std::optional<platform::Bytes>& data,
            const std::optional<platform::Error>& error) {
            finishJsonRequest(url, error, data, response, finished);
            const auto operations = self->operationQueue->operations();
            if (!operations.empty())
                operations.back()->cancel();
        });
}

std::string RestConnector_Old::description() const
{
    return describeObject("RestConnector_Old", this);
}

}
