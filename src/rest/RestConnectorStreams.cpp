// RestConnector's transfers of file contents: the stream download and upload, and the two plain variants.

#include "rest/RestConnector.h"

#include "platform/Log.h"
#include "rest/JsonRequest.h"
#include "rest/RequestTimeout.h"
#include "rest/RestURL.h"
#include "rest/TransferFiles.h"
#include "util/ServicesUtilities.h"

namespace rest {

using namespace platform::http;

namespace {

// The text under `key` of the parameters, or nothing.
std::optional<std::string> textParameter(const platform::Value& params, std::string_view key)
{
    const std::string* text = params.isDictionary() ? platform::stringForKey(params, key) : nullptr;
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

platform::Value dataOf(const std::optional<platform::Bytes>& bytes)
{
    return platform::Value::data(bytes.value_or(platform::Bytes()));
}

}

void RestConnector::startAsyncDownloadWithStreamRequest(
    std::string_view path, const platform::Value& params, ProgressHandler progress, StreamFinished finished)
{
    if (!begin(std::move(progress), &RestConnector::configSessionForData)) {
        finished(std::monostate(), std::monostate(), TransportNotReachable);
        return;
    }
    const auto request = prepareJsonRequest(writeJsonBody(params), getAbsoluteURL(path), "%@",
        [&](const platform::Error& error) { finished(std::monostate(), error, TransportRequestNotJson); });
    if (!request)
        return;
    sessionTask = session->dataTask(
        *request, [self = shared_from_this(), finished = std::move(finished)](const Result& result) {
            // Neither the HTTP status nor the error's code is looked at, and the body is handed over unparsed.
            if (result.error)
                finished(std::monostate(), *result.error, TransportFailed);
            else
                finished(*result.response, dataOf(result.data), TransportSucceeded);
        });
    resume();
}

void RestConnector::startAsyncUploadWithStreamRequest(
    std::string_view path, const platform::Value& params, ProgressHandler progress, Finished finished)
{
    if (!begin(std::move(progress), &RestConnector::configSessionForUpload)) {
        finished(std::monostate(), TransportNotReachable);
        return;
    }
    const std::optional<std::string> url = getAbsoluteURL(path);

    const std::optional<std::string> serverPath = textParameter(params, "FilePath");
    const std::optional<std::string> transitDownloadPath = textParameter(params, "TransitDownloadPath");
    const std::optional<std::string> fileRequestID = textParameter(params, "FileRequestID");
    const std::string localPath = util::ServicesUtilities::convertPathToMac(serverPath.value_or(std::string()));
    // The local path goes through the URL-string parser, not a file-URL constructor: a path that is not a valid
    // URL (a space, a non-ASCII letter) names no file, and percent escapes in it are decoded.
    const std::optional<std::string> localFile = pathOfURL(localPath);
    platform::log("%@ %@ %@", localPath, transitDownloadPath.value_or("(null)"), fileRequestID.value_or("(null)"));

    const StagingFile staging(localPath);
    staging.copyFrom(localFile);

    Request request;
    request.url = url.value_or(std::string());
    request.timeoutInterval = requestTimeout();
    request.httpMethod = "POST";
    request.setValue("application/octet-stream", "Content-Type");
    // The parameters travel only in these headers, unchanged (the server's form of the path); a missing one sets
    // no header.
    for (const char* field : { "FilePath", "TransitDownloadPath", "FileRequestID" }) {
        if (const auto value = textParameter(params, field))
            request.setValue(*value, field);
    }

    // A streamed upload task is made for the request and never started: harmless, and kept.
    session->uploadTask(request, BodyStream(), nullptr);

    auto task = session->uploadTask(request, staging.path(),
        [self = shared_from_this(), staging, finished = std::move(finished)](const Result& result) {
            if (result.error) {
                finished(*result.error, TransportFailed);
                return;
            }
            const auto reply = parseReply(result.data);
            staging.remove();
            if (const auto* parsed = std::get_if<platform::Value>(&reply))
                finished(*parsed, TransportSucceeded);
            else
                finished(std::monostate(), TransportSucceeded);
        });
    task->setTaskDescription(staging.name());
    task->resume();
}

void RestConnector::startAsyncDownload(const std::string& url, ProgressHandler progress, Finished finished)
{
    if (!begin(std::move(progress), &RestConnector::configSessionForDownload)) {
        finished(std::monostate(), TransportNotReachable);
        return;
    }
    sessionTask = session->downloadTask(
        url.c_str(), [self = shared_from_this(), finished = std::move(finished)](const Result& result) {
            if (result.error) {
                finished(*result.error, TransportFailed);
                platform::log("nework error.......%@", *result.error);
                return;
            }
            // The whole body, read into memory; the downloaded file is not kept.
            if (auto contents = readWholeFile(*result.location))
                finished(platform::Value::data(std::move(*contents)), TransportSucceeded);
            else
                finished(std::monostate(), TransportSucceeded);
        });
    resume();
}

void RestConnector::startAsyncUpload(
    std::string_view path, const platform::Value& params, ProgressHandler progress, Finished finished)
{
    if (!begin(std::move(progress), &RestConnector::configSessionForDownload)) {
        finished(std::monostate(), TransportNotReachable);
        return;
    }
    const std::optional<std::string> url = getAbsoluteURL(path);
    const auto request = prepareJsonRequest(
        writeJsonBody(params), url, nullptr, [&](const platform::Error& error) { finished(error, TransportRequestNotJson); });
    if (!request)
        return;
    platform::log("url is........%@", url.value_or("(null)"));
    // This transfer was left unfinished here: its request is built and never sent, and `finished` is not called.
}

}
