#include "rest/RestConnector.h"

#include "platform/Log.h"
#include "rest/JsonRequest.h"
#include "rest/Reachability.h"
#include "rest/RequestTimeout.h"
#include "rest/RestURL.h"

namespace rest {

using namespace platform::http;

std::optional<std::string> RestConnector::getAbsoluteURL(std::string_view path) const
{
    return absoluteURL(path);
}

void RestConnector::makeSession(Configuration configuration)
{
    session = Session::make(std::move(configuration), weak_from_this(), platform::Queue::main());
}

void RestConnector::configSessionForData()
{
    Configuration configuration = Configuration::defaultConfiguration();
    configuration.additionalHeaders = { { "Accept", "application/json" }, { "Content-Type", "application/json" } };
    configuration.allowsCellularAccess = true;
    configuration.timeoutIntervalForRequest = requestTimeout();
    configuration.timeoutIntervalForResource = requestTimeout();
    configuration.httpMaximumConnectionsPerHost = 1;
    makeSession(std::move(configuration));
}

void RestConnector::configSessionForUpload()
{
    Configuration configuration = Configuration::defaultConfiguration();
    configuration.httpMaximumConnectionsPerHost = 1;
    makeSession(std::move(configuration));
}

void RestConnector::configSessionForDownload()
{
    Configuration configuration = Configuration::defaultConfiguration();
    configuration.timeoutIntervalForRequest = requestTimeout();
    configuration.timeoutIntervalForResource = requestTimeout();
    makeSession(std::move(configuration));
}

bool RestConnector::begin(ProgressHandler progress, void (RestConnector::*configure)())
{
    if (!Reachability::isReachable())
        return false;
    progressHandler = std::move(progress);
    (this->*configure)();
    return true;
}

void RestConnector::startAsyncTask(std::string_view path, JsonBody body, ProgressHandler progress, Finished finished)
{
    // The download configuration, on purpose: 60-second time-outs and no default headers.
    if (!begin(std::move(progress), &RestConnector::configSessionForDownload)) {
        finished(std::monostate(), TransportNotReachable);
        return;
    }
    auto request = prepareJsonRequest(std::move(body), getAbsoluteURL(path), finished);
    if (!request)
        return;
    std::string url = request->url;
    sessionTask = session->dataTask(std::move(*request),
        [self = shared_from_this(), url = std::move(url), finished = std::move(finished)](const Result& result) {
            finishJsonRequest(url, result.error, result.data, result.response, finished);
        });
    resume();
}

TransportStatus RestConnector::resume()
{
    if (!sessionTask)
        return TransportNoTaskToResume;
    sessionTask->resume();
    return TransportTaskResumed;
}

TransportStatus RestConnector::pause()
{
    if (!sessionTask)
        return TransportNoTaskToPause;
    // Resumed, not suspended: a pause never stops a running task.
    sessionTask->resume();
    return TransportPauseRequested;
}

TransportStatus RestConnector::close()
{
    if (!sessionTask)
        return TransportNoTaskToClose;
    sessionTask->cancel();
    return TransportTaskCancelled;
}

std::string RestConnector::description() const
{
    return describeObject("RestConnector", this);
}

void RestConnector::didReceiveChallenge(Session&, Task&, const AuthenticationChallenge&, ChallengeCompletionHandler)
{
}

void RestConnector::taskDidComplete(Session&, Task& task, const std::optional<platform::Error>& error)
{
    platform::log(".........%@", describe(task.response()));
    platform::log("error ............%@", error ? error->description() : "(null)");
}

}
