#include "rest/RestConnector.h"

#include "RestTestSupport.h"
#include "platform/HttpErrors.h"
#include "rest/RequestTimeout.h"

#include <filesystem>

using namespace resttest;
using namespace rest;
using platform::Value;

namespace {

platform::Value dataOf(const std::string& text)
{
    return Value::data(platform::Bytes(text.begin(), text.end()));
}

class RestConnectorStreams : public RestClientTest {
protected:
    RestConnectorStreams()
        : RestClientTest([this](const httplib::Request&, httplib::Response& response) {
            stagedDuringRequest = std::filesystem::exists(home / "report.txt");
            response.set_content("{\"ReturnStatus\":\"1\"}", "application/json");
        })
    {
        testsupport::writeFile(localFile, "file contents\n");
    }

    Value uploadParams(const std::filesystem::path& local) const
    {
        return Value::dictionary({ { "FilePath", serverForm(local) }, { "FileRequestID", "42" },
            { "TransitDownloadPath", "Transit\\report.txt" }, { "Attachment", "x" } });
    }

    // Starts a stream upload of `local` and waits for its callback.
    FinishedRecorder::Call upload(const std::filesystem::path& local)
    {
        connector->startAsyncUploadWithStreamRequest(
            "Downloads.svc/UpdateFileRequestWithStream", uploadParams(local), nullptr, finished.callback());
        EXPECT_TRUE(finished.waitFor());
        return finished.only();
    }

    StreamRecorder::Call download(const Value& params = Value::dictionary({ { "ToComputerID", "5" } }))
    {
        connector->startAsyncDownloadWithStreamRequest(
            "Uploads.svc/GetTopFileUploadWithStream", params, nullptr, streamed.callback());
        EXPECT_TRUE(streamed.waitFor());
        return streamed.only();
    }

    testsupport::TempDir files;
    std::filesystem::path localFile = files / "folder/report.txt";
    std::atomic<bool> stagedDuringRequest { false };
    std::shared_ptr<RestConnector> connector = std::make_shared<RestConnector>();
    FinishedRecorder finished;
    StreamRecorder streamed;
};

}

TEST_F(RestConnectorStreams, AStreamDownloadOfA404HtmlReplyGivesTheResponseAndTheRawBodyWithStatusZero)
{
    RestServer notFound(RestServer::reply("<html>missing</html>", 404, "text/html"));
    const auto pointAtNotFound = serverAt(notFound.url("/"));
    const auto call = download();
    const auto& [first, second, status] = call.arguments;
    EXPECT_EQ(status, TransportSucceeded);
    const auto* response = std::get_if<platform::http::Response>(&first);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->statusCode, 404);
    ASSERT_NE(valueIn(second), nullptr);
    EXPECT_EQ(*valueIn(second), dataOf("<html>missing</html>"));
    EXPECT_TRUE(call.place.onMainQueue);
}

TEST_F(RestConnectorStreams, AStreamDownloadPostsItsJsonWithTheDataSessionsHeadersAndLogsIt)
{
    download();
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "Uploads.svc/GetTopFileUploadWithStream");
    EXPECT_EQ(received[0].body, "{\n  \"ToComputerID\" : \"5\"\n}");
    EXPECT_EQ(received[0].header("Accept"), "application/json");
    EXPECT_EQ(received[0].header("Content-Type"), "application/json");
    EXPECT_EQ(received[0].header("Content-Length"), std::to_string(received[0].body.size()));
    EXPECT_TRUE(log.contains("{\n  \"ToComputerID\" : \"5\"\n}"));
    EXPECT_EQ(connector->session->configuration().httpMaximumConnectionsPerHost, 1u);
}

TEST_F(RestConnectorStreams, AStreamDownloadTransportErrorGivesNothingTheErrorAndStatusTwo)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    const auto [first, second, status] = download().arguments;
    EXPECT_EQ(status, TransportFailed);
    EXPECT_TRUE(isNothing(first));
    ASSERT_NE(errorIn(second), nullptr);
    EXPECT_EQ(errorIn(second)->code, platform::http::URLErrorCannotConnectToHost);
}

TEST_F(RestConnectorStreams, AStreamDownloadReportsErrorMinusOneLikeAnyOtherAndLogsNothing)
{
    platform::http::testhooks::setErrorInjector(
        [](const platform::http::Request&) { return platform::http::urlError(platform::http::URLErrorUnknown); });
    const auto [first, second, status] = download().arguments;
    platform::http::testhooks::setErrorInjector(nullptr);
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(second), nullptr);
    EXPECT_EQ(errorIn(second)->code, platform::http::URLErrorUnknown);
    EXPECT_EQ(log.countStartingWith("error code"), 0u);
}

TEST_F(RestConnectorStreams, AStreamDownloadWithoutNetworkCallsBackAtOnceWithNothingNothingAndOne)
{
    platform::PinnedReachabilityFlags unreachable { 0 };
    connector->startAsyncDownloadWithStreamRequest("X.svc/Y", Value::dictionary(), nullptr, streamed.callback());
    ASSERT_EQ(streamed.count(), 1u);
    const auto call = streamed.only();
    const auto& [first, second, status] = call.arguments;
    EXPECT_TRUE(isNothing(first));
    EXPECT_TRUE(isNothing(second));
    EXPECT_EQ(status, TransportNotReachable);
    EXPECT_EQ(call.place.thread, std::this_thread::get_id());
}

TEST_F(RestConnectorStreams, AStreamDownloadOfParametersThatAreNotJsonCallsBackAtOnceWithTheErrorSecondAndFour)
{
    connector->startAsyncDownloadWithStreamRequest(
        "X.svc/Y", Value::dictionary({ { "When", Value::date(1) } }), nullptr, streamed.callback());
    ASSERT_EQ(streamed.count(), 1u);
    const auto& [first, second, status] = streamed.only().arguments;
    EXPECT_EQ(status, TransportRequestNotJson);
    EXPECT_TRUE(isNothing(first));
    EXPECT_NE(errorIn(second), nullptr);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorStreams, AnUploadPostsTheFileAsAnOctetStreamWithItsFieldsInThreeHeaders)
{
    upload(localFile);
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "Downloads.svc/UpdateFileRequestWithStream");
    EXPECT_EQ(received[0].body, "file contents\n");
    EXPECT_EQ(received[0].header("Content-Type"), "application/octet-stream");
    // The server's form of the path, unchanged.
    EXPECT_EQ(received[0].header("FilePath"), serverForm(localFile));
    EXPECT_EQ(received[0].header("TransitDownloadPath"), "Transit\\report.txt");
    EXPECT_EQ(received[0].header("FileRequestID"), "42");
    EXPECT_EQ(received[0].header("Attachment"), "(none)");
    EXPECT_TRUE(log.contains(localFile.string() + " Transit\\report.txt 42"));
}

TEST_F(RestConnectorStreams, AnUploadSuccessHandsOverTheParsedReplyAndDeletesTheStagingFile)
{
    const auto call = upload(localFile);
    const auto& [object, status] = call.arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_NE(valueIn(object), nullptr);
    EXPECT_EQ(*valueIn(object), Value::dictionary({ { "ReturnStatus", "1" } }));
    EXPECT_TRUE(call.place.onMainQueue);
    EXPECT_TRUE(stagedDuringRequest) << "the staging copy was not in the home directory while it was sent";
    EXPECT_FALSE(std::filesystem::exists(home / "report.txt"));
    EXPECT_TRUE(std::filesystem::exists(localFile));
}

TEST_F(RestConnectorStreams, AnUploadFailureKeepsTheStagingFile)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    const auto [object, status] = upload(localFile).arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(object), nullptr);
    EXPECT_EQ(errorIn(object)->code, platform::http::URLErrorCannotConnectToHost);
    EXPECT_EQ(testsupport::readFile(home / "report.txt"), "file contents\n");
}

TEST_F(RestConnectorStreams, AnUploadAnsweredWithAnAuthenticationChallengeTimesOutAndKeepsTheStagingFile)
{
    testhooks::ShortenedRequestTimeout shortened { platform::http::Seconds { 0.5 } };
    RestServer challenging(RestServer::challenge(401));
    const auto pointAtChallenging = serverAt(challenging.url("/"));
    const auto [object, status] = upload(localFile).arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(object), nullptr);
    EXPECT_EQ(errorIn(object)->code, platform::http::URLErrorTimedOut);
    EXPECT_EQ(testsupport::readFile(home / "report.txt"), "file contents\n");
}

TEST_F(RestConnectorStreams, TheNextUploadOfAFileWithTheSameNameOverwritesAKeptStagingFile)
{
    testsupport::writeFile(home / "report.txt", "left by a failed upload");
    upload(localFile);
    ASSERT_EQ(server.received().size(), 1u);
    EXPECT_EQ(server.received()[0].body, "file contents\n");
}

TEST_F(RestConnectorStreams, AnUploadWhoseReplyIsNotJsonSucceedsWithNothing)
{
    RestServer plain(RestServer::reply("done", 200, "text/plain"));
    const auto pointAtPlain = serverAt(plain.url("/"));
    const auto [object, status] = upload(localFile).arguments;
    EXPECT_EQ(status, TransportSucceeded);
    EXPECT_TRUE(isNothing(object));
    EXPECT_FALSE(std::filesystem::exists(home / "report.txt"));
}

TEST_F(RestConnectorStreams, AnUploadOfAFileThatCannotBeReadFailsWithStatusTwoAndSendsNothing)
{
    const auto [object, status] = upload(files / "folder/missing.txt").arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(object), nullptr);
    EXPECT_EQ(errorIn(object)->code, platform::http::URLErrorFileDoesNotExist);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorStreams, ALocalPathThatIsNotAValidURLNamesNoFileSoNothingIsStagedAndTheUploadFails)
{
    const auto spaced = files / "folder/my report.txt";
    testsupport::writeFile(spaced, "contents");
    const auto [object, status] = upload(spaced).arguments;
    EXPECT_EQ(status, TransportFailed);
    EXPECT_FALSE(std::filesystem::exists(home / "my report.txt"));
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorStreams, APercentEscapeInTheLocalPathIsDecodedToReadTheFileButTheStagingNameKeepsIt)
{
    const auto spaced = files / "folder/my report.txt";
    testsupport::writeFile(spaced, "spaced contents");
    RestServer checking([&](const httplib::Request&, httplib::Response& response) {
        stagedDuringRequest = std::filesystem::exists(home / "my%20report.txt");
        response.set_content("{}", "application/json");
    });
    const auto pointAtChecking = serverAt(checking.url("/"));
    const auto [object, status] = upload(files / "folder/my%20report.txt").arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_EQ(checking.received().size(), 1u);
    EXPECT_EQ(checking.received()[0].body, "spaced contents");
    EXPECT_TRUE(stagedDuringRequest);
}

TEST_F(RestConnectorStreams, AnUploadIsNotTheSessionTaskSoTheTaskControlsDoNotReachIt)
{
    upload(localFile);
    EXPECT_EQ(connector->sessionTask, nullptr);
    EXPECT_EQ(connector->close(), TransportNoTaskToClose);
    EXPECT_EQ(connector->session->configuration().httpMaximumConnectionsPerHost, 1u);
}

TEST_F(RestConnectorStreams, AnUploadWithoutNetworkCallsBackAtOnceWithNothingAndOneAndStagesNothing)
{
    platform::PinnedReachabilityFlags unreachable { 0 };
    connector->startAsyncUploadWithStreamRequest("X.svc/Y", uploadParams(localFile), nullptr, finished.callback());
    expectNotReachableAtOnce(finished);
    EXPECT_FALSE(std::filesystem::exists(home / "report.txt"));
}

TEST_F(RestConnectorStreams, APlainDownloadGetsTheWholeBodyAsDataWithStatusZero)
{
    connector->startAsyncDownload(server.url("/KorbanholdRestService/file.bin"), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    const auto call = finished.only();
    const auto& [object, status] = call.arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_NE(valueIn(object), nullptr);
    EXPECT_EQ(*valueIn(object), dataOf("{\"ReturnStatus\":\"1\"}"));
    EXPECT_TRUE(call.place.onMainQueue);
    ASSERT_EQ(server.received().size(), 1u);
    EXPECT_EQ(server.received()[0].method, "GET");
}

TEST_F(RestConnectorStreams, APlainDownloadErrorGivesStatusTwoAndIsLogged)
{
    connector->startAsyncDownload(
        httptest::loopbackURL(httptest::closedLoopbackPort(), "/file.bin"), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    const auto [object, status] = finished.only().arguments;
    EXPECT_EQ(status, TransportFailed);
    MainQueueThread::drain();
    EXPECT_EQ(log.countStartingWith("nework error.......Error Domain=NSURLErrorDomain Code=-1004"), 1u);
}

TEST_F(RestConnectorStreams, APlainUploadLogsItsURLAndStopsWithoutSendingOrCallingBack)
{
    connector->startAsyncUpload("Uploads.svc/Plain", Value::dictionary({ { "A", "b" } }), nullptr, finished.callback());
    MainQueueThread::drain();
    EXPECT_TRUE(log.contains("url is........http://" + server.host() + "/KorbanholdRestService/Uploads.svc/Plain"));
    EXPECT_EQ(finished.count(), 0u);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorStreams, APlainUploadOfParametersThatAreNotJsonCallsBackWithStatusFour)
{
    connector->startAsyncUpload(
        "Uploads.svc/Plain", Value::dictionary({ { "When", Value::date(1) } }), nullptr, finished.callback());
    ASSERT_EQ(finished.count(), 1u);
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportRequestNotJson);
}

TEST_F(RestConnectorStreams, ProgressCallbacksGivenToAnyTransferAreNeverCalled)
{
    std::atomic<int> progressCalls { 0 };
    const ProgressHandler progress = [&](std::int64_t, std::int64_t) { ++progressCalls; };
    connector->startAsyncDownloadWithStreamRequest("X.svc/Y", Value::dictionary(), progress, streamed.callback());
    ASSERT_TRUE(streamed.waitFor());
    auto uploader = std::make_shared<RestConnector>();
    uploader->startAsyncUploadWithStreamRequest("X.svc/Y", uploadParams(localFile), progress, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    auto downloader = std::make_shared<RestConnector>();
    FinishedRecorder downloaded;
    downloader->startAsyncDownload(server.url("/KorbanholdRestService/f"), progress, downloaded.callback());
    ASSERT_TRUE(downloaded.waitFor());
    MainQueueThread::drain();
    EXPECT_EQ(progressCalls, 0);
}

TEST_F(RestConnectorStreams, AnUploadFieldMissingFromTheParametersSendsNoHeader)
{
    connector->startAsyncUploadWithStreamRequest("Downloads.svc/UpdateFileRequestWithStream",
        Value::dictionary({ { "FilePath", serverForm(localFile) } }), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    ASSERT_EQ(server.received().size(), 1u);
    EXPECT_EQ(server.received()[0].header("FilePath"), serverForm(localFile));
    EXPECT_EQ(server.received()[0].header("FileRequestID"), "(none)");
    EXPECT_EQ(server.received()[0].header("TransitDownloadPath"), "(none)");
    EXPECT_TRUE(log.contains(localFile.string() + " (null) (null)"));
}
