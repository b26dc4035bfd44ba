#pragma once

// RestConnector: the HTTP transport of the REST client on current systems (the façade chooses it from OS 10.10 on,
// and below 10.7). One connector serves one request: a JSON request (startAsyncTask), a stream download or upload,
// or one of the two plain transfers. Each request runs in a session the connector makes for it, with the connector
// as the session's delegate and the main queue as its delegate queue, so completions and delegate callbacks run on
// the main queue. Only the failures found before sending (network not reachable, parameters not JSON) call back at
// once, on the caller's thread.
//
// Connectors are made with std::make_shared: the session's delegate and the tasks' completions refer to them
// through shared pointers, and a connector lives until its request's completion has run.

#include "platform/HttpSession.h"
#include "rest/JsonTransport.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace rest {

class RestConnector : public JsonTransport,
                      public platform::http::SessionDelegate,
                      public std::enable_shared_from_this<RestConnector> {
public:
    // The session made for the running request (none before a request starts).
    std::shared_ptr<platform::http::Session> session;
    // The task that resume, pause and close act on.
    std::shared_ptr<platform::http::Task> sessionTask;
    // Kept for the delegate callbacks, which never call it.
    ProgressHandler progressHandler;

    // The server method's absolute URL: the base URL and `path`, nothing inserted or escaped (RestURL.h).
    std::optional<std::string> getAbsoluteURL(std::string_view path) const;

    // Each replaces `session` with a new one (delegate: this connector; delegate queue: the main queue):
    // - for data: "Accept" and "Content-Type" "application/json" on every request, cellular access allowed,
    //   request and resource time-outs of 60 s, one connection per host;
    // - for upload: the default configuration with one connection per host;
    // - for download: request and resource time-outs of 60 s, otherwise the defaults.
    void configSessionForData();
    void configSessionForUpload();
    void configSessionForDownload();

    // The JSON request: not reachable gives (nothing, 1) at once; otherwise, in a session configured for download,
    // the body is logged ("Json String %@"); a writing error gives (error, 4) at once; else the JSON is posted to
    // the method's URL and the reply arrives as finishJsonRequest describes (JsonRequest.h).
    using JsonTransport::startAsyncTask;
    void startAsyncTask(std::string_view path, JsonBody body, ProgressHandler progress, Finished finished) override;

    // Starts `sessionTask`: 6, or 7 when there is none.
    TransportStatus resume();
    // Resumes `sessionTask` (a pause never stops a running task): 8, or 9 when there is none.
    TransportStatus pause();
    // Cancels `sessionTask`, which then fails with -999 (status 2): 11, or 10 when there is none.
    TransportStatus close();

    // The stream download (RestConnectorStreams.cpp): the JSON request of startAsyncTask in a session configured
    // for data, logged with "%@"; `finished` gets (HTTP response, reply body as data, 0) whatever the HTTP status
    // and whatever the body, (nothing, error, 2) for any transport error (code -1 included), (nothing, error, 4)
    // and (nothing, nothing, 1) for the early failures.
    void startAsyncDownloadWithStreamRequest(
        std::string_view path, const platform::Value& params, ProgressHandler progress, StreamFinished finished);
    // The stream upload: the local file named by params["FilePath"] (server form, converted to the local form) is
    // copied to a staging file of the same name in the service's home directory and posted as an octet stream,
    // with params' "FilePath", "TransitDownloadPath" and "FileRequestID" as headers. `finished` gets (parsed reply
    // or nothing, 0) and the staging file is deleted, or (error, 2) and it stays. The task is not `sessionTask`.
    void startAsyncUploadWithStreamRequest(
        std::string_view path, const platform::Value& params, ProgressHandler progress, Finished finished);
    // A GET of the absolute `url`; `finished` gets (the body as data, 0) or (error, 2). Not used by the service.
    void startAsyncDownload(const std::string& url, ProgressHandler progress, Finished finished);
    // Builds a JSON request and stops there: nothing is sent and `finished` is called only for the early failures.
    // Not used by the service.
    void startAsyncUpload(
        std::string_view path, const platform::Value& params, ProgressHandler progress, Finished finished);

    std::string description() const override;

    // The session's report that a task has ended, after its completion: logs the task's response and the error.
    // (platform::http reports no progress, for which the connector's callbacks did nothing.)
    void taskDidComplete(platform::http::Session& session, platform::http::Task& task,
        const std::optional<platform::Error>& error) override;
    // An authentication challenge (a 401 or 407 reply that asks for credentials) is never answered: the task waits
    // until its time-out and ends with URLErrorTimedOut (status 2), and an upload keeps its staging file.
    void didReceiveChallenge(platform::http::Session& session, platform::http::Task& task,
        const platform::http::AuthenticationChallenge& challenge,
        platform::http::ChallengeCompletionHandler completionHandler) override;

private:
    void makeSession(platform::http::Configuration configuration);
    // How every transfer starts: false when the network is not reachable; otherwise keeps `progress` and makes the
    // session with `configure`.
    bool begin(ProgressHandler progress, void (RestConnector::*configure)());
};

}
