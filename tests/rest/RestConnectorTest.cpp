#include "rest/RestConnector.h"

#include "RestTestSupport.h"
#include "platform/HttpErrors.h"
#include "platform/Json.h"
#include "rest/RequestTimeout.h"
#include "rest/RestURL.h"
#include "support/Eventually.h"

using namespace resttest;
using namespace rest;
using platform::Value;
using platform::http::URLErrorCode;

namespace {

class RestConnectorJson : public RestClientTest {
protected:
    explicit RestConnectorJson(RestServer::Respond respond = RestServer::reply("{\"ReturnStatus\":\"1\"}"))
        : RestClientTest(std::move(respond))
    {
    }

    std::shared_ptr<RestConnector> connector = std::make_shared<RestConnector>();
    FinishedRecorder finished;

    // Starts a JSON request on the connector and waits for its callback.
    FinishedRecorder::Call send(
        const Value& params = Value::dictionary({ { "Key", "value" } }), const std::string& path = "Test.svc/Method")
    {
        connector->startAsyncTask(path, params, nullptr, finished.callback());
        EXPECT_TRUE(finished.waitFor()) << "no callback";
        return finished.only();
    }
};

void expectURLError(const FinishedRecorder::Call& call, URLErrorCode code)
{
    const auto& [object, status] = call.arguments;
    EXPECT_EQ(status, TransportFailed);
    const platform::Error* error = errorIn(object);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain, "NSURLErrorDomain");
    EXPECT_EQ(error->code, code);
}

void expectNotJson(const FinishedRecorder::Call& call)
{
    const auto& [object, status] = call.arguments;
    EXPECT_EQ(status, TransportReplyNotJson);
    const platform::Error* error = errorIn(object);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain, platform::cocoaErrorDomain);
    EXPECT_EQ(error->code, platform::jsonErrorCode);
    EXPECT_TRUE(call.place.onMainQueue);
}

}

TEST_F(RestConnectorJson, AJsonReplyIsHandedOverParsedWithStatusZeroOnTheMainQueue)
{
    const auto call = send();
    const auto& [object, status] = call.arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_NE(valueIn(object), nullptr);
    EXPECT_EQ(*valueIn(object), Value::dictionary({ { "ReturnStatus", "1" } }));
    EXPECT_TRUE(call.place.onMainQueue);
    EXPECT_NE(call.place.thread, std::this_thread::get_id());
}

TEST_F(RestConnectorJson, TheRequestIsAPostOfPrettyPrintedJsonToTheMethodsPathWithoutSessionHeaders)
{
    send(Value::dictionary({ { "UserID", "7" }, { "Path", "a/b" } }), "Registration.svc/RegisterComputer");
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "Registration.svc/RegisterComputer");
    EXPECT_EQ(received[0].body, "{\n  \"UserID\" : \"7\",\n  \"Path\" : \"a\\/b\"\n}");
    EXPECT_EQ(received[0].header("Content-Type"), "application/json");
    EXPECT_EQ(received[0].header("Content-Length"), std::to_string(received[0].body.size()));
    // The download configuration adds no "Accept" header of its own: the HTTP layer's default stands.
    EXPECT_EQ(received[0].header("Accept"), "*/*");
}

TEST_F(RestConnectorJson, AnEmptyParamsDictionaryIsStillSentAsThePrettyPrintedEmptyObjectWithItsByteCount)
{
    const auto call = send(Value::dictionary());
    EXPECT_EQ(std::get<1>(call.arguments), TransportSucceeded);
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].body, "{\n\n}");
    EXPECT_EQ(received[0].header("Content-Length"), "4");
}

TEST_F(RestConnectorJson, TheJsonTextAndTheParsedReplyAreLogged)
{
    send(Value::dictionary({ { "Key", "value" } }));
    MainQueueThread::drain();
    EXPECT_TRUE(log.contains("Json String {\n  \"Key\" : \"value\"\n}"));
    EXPECT_TRUE(log.contains("response " + Value::dictionary({ { "ReturnStatus", "1" } }).description()));
}

TEST_F(RestConnectorJson, TheSessionDelegateLogsTheTaskResponseAndErrorAfterTheCompletion)
{
    send();
    MainQueueThread::drain();
    const auto lines = log.lines();
    const auto response = std::find_if(lines.begin(), lines.end(),
        [](const std::string& line) { return line.starts_with(".........{ URL: http://127.0.0.1:"); });
    ASSERT_NE(response, lines.end());
    EXPECT_NE(response->find("Status Code: 200"), std::string::npos) << *response;
    ASSERT_NE(response + 1, lines.end());
    EXPECT_EQ(*(response + 1), "error ............(null)");
    // The completion's own log line comes first.
    EXPECT_LT(std::find(lines.begin(), lines.end(),
                  "response " + Value::dictionary({ { "ReturnStatus", "1" } }).description()),
        response);
}

TEST_F(RestConnectorJson, WhenTheNetworkIsNotReachableItCallsBackAtOnceWithNothingAndStatusOneAndMakesNoSession)
{
    platform::PinnedReachabilityFlags unreachable { 0 };
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    expectNotReachableAtOnce(finished);
    EXPECT_EQ(connector->session, nullptr);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorJson, FlagsThatCannotBeReadCountAsNotReachable)
{
    platform::PinnedReachabilityFlags unreadable { std::nullopt };
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    expectNotReachableAtOnce(finished);
}

TEST_F(RestConnectorJson, ASerialisationFailureCallsBackAtOnceWithTheErrorAndStatusFourAndMakesNoTask)
{
    // A date has no JSON form.
    connector->startAsyncTask(
        "Test.svc/Method", Value::dictionary({ { "When", Value::date(0) } }), nullptr, finished.callback());
    ASSERT_EQ(finished.count(), 1u) << "the callback came after the call returned";
    const auto call = finished.only();
    EXPECT_EQ(std::get<1>(call.arguments), TransportRequestNotJson);
    const platform::Error* error = errorIn(std::get<0>(call.arguments));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain, platform::cocoaErrorDomain);
    EXPECT_EQ(call.place.thread, std::this_thread::get_id());
    EXPECT_EQ(connector->sessionTask, nullptr);
    EXPECT_TRUE(log.contains("Json String (null)"));
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorJson, TextThatIsNotUtf8IsNotJsonAndGivesStatusFour)
{
    connector->startAsyncTask(
        "Test.svc/Method", Value::dictionary({ { "Name", std::string("\xff\xfe") } }), nullptr, finished.callback());
    ASSERT_EQ(finished.count(), 1u);
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportRequestNotJson);
}

TEST_F(RestConnectorJson, ATopLevelArrayIsSentAsIs)
{
    send(Value::array({ Value("a"), Value::integer(1) }));
    ASSERT_EQ(server.received().size(), 1u);
    EXPECT_EQ(server.received()[0].body, "[\n  \"a\",\n  1\n]");
}

TEST_F(RestConnectorJson, APauseOfARunningTaskLeavesItRunningAndAnswersEight)
{
    RestServer slow([](const httplib::Request&, httplib::Response& response) {
        std::this_thread::sleep_for(300ms);
        response.set_content("[]", "application/json");
    });
    const auto pointAtSlow = serverAt(slow.url("/"));
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    EXPECT_EQ(connector->pause(), TransportPauseRequested);
    EXPECT_EQ(connector->sessionTask->state(), platform::http::Task::State::Running);
    ASSERT_TRUE(finished.waitFor());
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportSucceeded);
}

TEST_F(RestConnectorJson, TaskControlsWithoutATaskAnswerSevenNineAndTen)
{
    EXPECT_EQ(connector->resume(), TransportNoTaskToResume);
    EXPECT_EQ(connector->pause(), TransportNoTaskToPause);
    EXPECT_EQ(connector->close(), TransportNoTaskToClose);
}

TEST_F(RestConnectorJson, ResumeOfAStartedTaskAnswersSixAndChangesNothing)
{
    send();
    EXPECT_EQ(connector->resume(), TransportTaskResumed);
    MainQueueThread::drain();
    EXPECT_EQ(finished.count(), 1u);
    EXPECT_EQ(server.received().size(), 1u);
}

TEST_F(RestConnectorJson, CloseCancelsTheRunningTaskWhichFailsWithStatusTwoAndTheCancelledError)
{
    httptest::RawSocketServer silent([](int connection, httptest::RawSocketServer& self) {
        httptest::RawSocketServer::readRequestHead(connection);
        self.holdOpen(connection);
    });
    const auto pointAtSilent = serverAt(silent.url("/"));
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    EXPECT_EQ(connector->close(), TransportTaskCancelled);
    ASSERT_TRUE(finished.waitFor());
    expectURLError(finished.only(), platform::http::URLErrorCancelled);
}

TEST_F(RestConnectorJson, AnEmptyArrayReplyWithHttpStatus500IsASuccessWithTheEmptyArray)
{
    RestServer failing(RestServer::reply("[]", 500));
    const auto pointAtFailing = serverAt(failing.url("/"));
    const auto call = send();
    EXPECT_EQ(std::get<1>(call.arguments), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(call.arguments)), nullptr);
    EXPECT_EQ(*valueIn(std::get<0>(call.arguments)), Value::array());
}

TEST_F(RestConnectorJson, AnEmptyDictionaryReplyWithHttpStatus500IsASuccessWithTheEmptyDictionary)
{
    RestServer failing(RestServer::reply("{}", 500));
    const auto pointAtFailing = serverAt(failing.url("/"));
    const auto call = send();
    EXPECT_EQ(std::get<1>(call.arguments), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(call.arguments)), nullptr);
    EXPECT_EQ(*valueIn(std::get<0>(call.arguments)), Value::dictionary());
}

TEST_F(RestConnectorJson, AnHtmlReplyGivesStatusFiveWithTheParseError)
{
    RestServer html(RestServer::reply("<html><body>Not Found</body></html>", 404, "text/html"));
    const auto pointAtHtml = serverAt(html.url("/"));
    expectNotJson(send());
    MainQueueThread::drain();
    EXPECT_TRUE(log.contains("response (null)"));
}

TEST_F(RestConnectorJson, AnEmptyReplyBodyGivesStatusFive)
{
    RestServer empty(RestServer::reply("", 200, "application/json"));
    const auto pointAtEmpty = serverAt(empty.url("/"));
    expectNotJson(send());
}

TEST_F(RestConnectorJson, ARefusedConnectionGivesStatusTwoWithCannotConnectAndLogsANetworkError)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    const auto call = send();
    expectURLError(call, platform::http::URLErrorCannotConnectToHost);
    EXPECT_TRUE(call.place.onMainQueue);
    MainQueueThread::drain();
    const auto lines = log.lines();
    const auto errorLine = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.starts_with("error code ....Error Domain=NSURLErrorDomain Code=-1004");
    });
    ASSERT_NE(errorLine, lines.end());
    // The next line names the URL the request went to, so that a wrong server address shows.
    ASSERT_NE(errorLine + 1, lines.end());
    EXPECT_TRUE((errorLine + 1)->starts_with("The request to " + rest::baseURL())) << *(errorLine + 1);
    EXPECT_TRUE((errorLine + 1)->ends_with(" failed")) << *(errorLine + 1);
    EXPECT_TRUE(log.contains("network error"));
}

TEST_F(RestConnectorJson, AConnectionDroppedBeforeTheReplyGivesStatusTwoWithConnectionLost)
{
    httptest::RawSocketServer dropping(
        [](int connection, httptest::RawSocketServer&) { httptest::RawSocketServer::readRequestHead(connection); });
    const auto pointAtDropping = serverAt(dropping.url("/"));
    expectURLError(send(), platform::http::URLErrorNetworkConnectionLost);
}

TEST_F(RestConnectorJson, AServerThatNeverAnswersGivesStatusTwoWithTimedOut)
{
    testhooks::ShortenedRequestTimeout shortened { platform::http::Seconds { 0.3 } };
    httptest::RawSocketServer silent([](int connection, httptest::RawSocketServer& self) {
        httptest::RawSocketServer::readRequestHead(connection);
        self.holdOpen(connection);
    });
    const auto pointAtSilent = serverAt(silent.url("/"));
    expectURLError(send(), platform::http::URLErrorTimedOut);
}

TEST_F(RestConnectorJson, AnAuthenticationChallengeIsNeverAnsweredSoTheRequestWaitsForItsTimeOutThenStatusTwo)
{
    // The reply comes at once; only the unanswered challenge keeps the request from ending before its time-out.
    testhooks::ShortenedRequestTimeout shortened { platform::http::Seconds { 0.5 } };
    for (int status : { 401, 407 }) {
        SCOPED_TRACE(status);
        RestServer challenging(RestServer::challenge(status));
        const auto pointAtChallenging = serverAt(challenging.url("/"));
        FinishedRecorder challenged;
        const auto start = std::chrono::steady_clock::now();
        std::make_shared<RestConnector>()->startAsyncTask(
            "Test.svc/Method", Value::dictionary(), nullptr, challenged.callback());
        ASSERT_TRUE(challenged.waitFor());
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
        expectURLError(challenged.only(), platform::http::URLErrorTimedOut);
        EXPECT_EQ(challenging.received().size(), 1u);
    }
}

TEST_F(RestConnectorJson, A401WithoutAChallengeIsHandedOnAsAnyReply)
{
    RestServer refusing(RestServer::reply("{\"ReturnStatus\":\"1\"}", 401));
    const auto pointAtRefusing = serverAt(refusing.url("/"));
    const auto [object, status] = send().arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_NE(valueIn(object), nullptr);
    EXPECT_EQ(*valueIn(object), Value::dictionary({ { "ReturnStatus", "1" } }));
}

TEST_F(RestConnectorJson, ATransportErrorOfCodeMinusOneCallsNothingAndLogsTwoLines)
{
    platform::http::testhooks::setErrorInjector(
        [](const platform::http::Request&) { return platform::http::urlError(platform::http::URLErrorUnknown); });
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    // The completion step runs on the main queue; once it has, nothing more can come.
    EXPECT_TRUE(
        testsupport::eventually([&] { return log.contains("error code at rest connector strt async task......"); }));
    platform::http::testhooks::setErrorInjector(nullptr);
    MainQueueThread::drain();
    EXPECT_TRUE(log.contains("error code ....Error Domain=NSURLErrorDomain Code=-1 \"unknown error\""));
    EXPECT_TRUE(log.contains("error code at rest connector strt async task......"));
    EXPECT_FALSE(log.contains("network error"));
    EXPECT_EQ(finished.count(), 0u);
}

TEST_F(RestConnectorJson, ProgressCallbacksAreKeptAndNeverCalled)
{
    int progressCalls = 0;
    connector->startAsyncTask(
        "Test.svc/Method", Value::dictionary(), [&](std::int64_t, std::int64_t) { ++progressCalls; },
        finished.callback());
    ASSERT_TRUE(finished.waitFor());
    MainQueueThread::drain();
    EXPECT_TRUE(connector->progressHandler);
    EXPECT_EQ(progressCalls, 0);
}

TEST_F(RestConnectorJson, TheProductsTimeOutsAreSixtySeconds)
{
    EXPECT_EQ(requestTimeout(), platform::http::Seconds { 60 });
    send();
    EXPECT_EQ(connector->session->configuration().timeoutIntervalForRequest, platform::http::Seconds { 60 });
    EXPECT_EQ(connector->session->configuration().timeoutIntervalForResource, platform::http::Seconds { 60 });
    EXPECT_EQ(connector->sessionTask->originalRequest().timeoutInterval, platform::http::Seconds { 60 });
}

TEST(RestConnectorURL, TheAbsoluteURLIsTheBaseURLFollowedByThePathAsItIs)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "example.test:9000");
    RestConnector connector;
    EXPECT_EQ(connector.getAbsoluteURL("Registration.svc/RegisterComputer"),
        "http://example.test:9000/KorbanholdRestService/Registration.svc/RegisterComputer");
    // No slash is inserted or removed, nothing is escaped.
    EXPECT_EQ(
        connector.getAbsoluteURL("/Uploads.svc/x"), "http://example.test:9000/KorbanholdRestService//Uploads.svc/x");
    EXPECT_EQ(connector.getAbsoluteURL("A.svc/B%20C"), "http://example.test:9000/KorbanholdRestService/A.svc/B%20C");
}

TEST(RestConnectorURL, TheHostIsLocalhost8080UnlessTheServerVariableNamesOne)
{
    testsupport::ScopedEnvironment unset("KORBANHOLD_SERVER", std::nullopt);
    EXPECT_EQ(RestConnector().getAbsoluteURL("X.svc/Y"), "http://localhost:8080/KorbanholdRestService/X.svc/Y");
    testsupport::ScopedEnvironment empty("KORBANHOLD_SERVER", "");
    EXPECT_EQ(RestConnector().getAbsoluteURL("X.svc/Y"), "http://localhost:8080/KorbanholdRestService/X.svc/Y");
}

TEST(RestConnectorURL, APathWithACharacterURLsAreNotWrittenWithMakesNoURL)
{
    RestConnector connector;
    EXPECT_EQ(connector.getAbsoluteURL("Downloads.svc/UpdateBSDownloadStreamFailed\uFFFC"), std::nullopt);
    EXPECT_EQ(connector.getAbsoluteURL("A.svc/with space"), std::nullopt);
    EXPECT_EQ(connector.getAbsoluteURL("A.svc/bad%2"), std::nullopt);
}

TEST(RestConnectorSessions, TheDataConfigurationSendsJsonHeadersWithSixtySecondTimeOutsAndOneConnectionPerHost)
{
    auto connector = std::make_shared<RestConnector>();
    connector->configSessionForData();
    const auto& configuration = connector->session->configuration();
    EXPECT_EQ(configuration.additionalHeaders,
        (platform::http::Headers { { "Accept", "application/json" }, { "Content-Type", "application/json" } }));
    EXPECT_TRUE(configuration.allowsCellularAccess);
    EXPECT_EQ(configuration.timeoutIntervalForRequest, platform::http::Seconds { 60 });
    EXPECT_EQ(configuration.timeoutIntervalForResource, platform::http::Seconds { 60 });
    EXPECT_EQ(configuration.httpMaximumConnectionsPerHost, 1u);
    EXPECT_EQ(connector->session->delegateQueue(), platform::Queue::main());
}

TEST(RestConnectorSessions, TheUploadConfigurationIsTheDefaultWithOneConnectionPerHost)
{
    auto connector = std::make_shared<RestConnector>();
    connector->configSessionForUpload();
    const auto& configuration = connector->session->configuration();
    const auto defaults = platform::http::Configuration::defaultConfiguration();
    EXPECT_TRUE(configuration.additionalHeaders.empty());
    EXPECT_EQ(configuration.timeoutIntervalForRequest, defaults.timeoutIntervalForRequest);
    EXPECT_EQ(configuration.timeoutIntervalForResource, defaults.timeoutIntervalForResource);
    EXPECT_EQ(configuration.httpMaximumConnectionsPerHost, 1u);
    EXPECT_EQ(connector->session->delegateQueue(), platform::Queue::main());
}

TEST(RestConnectorSessions, TheDownloadConfigurationHasSixtySecondTimeOutsAndTheDefaultConnectionLimit)
{
    auto connector = std::make_shared<RestConnector>();
    connector->configSessionForDownload();
    const auto& configuration = connector->session->configuration();
    const auto defaults = platform::http::Configuration::defaultConfiguration();
    EXPECT_TRUE(configuration.additionalHeaders.empty());
    EXPECT_EQ(configuration.timeoutIntervalForRequest, platform::http::Seconds { 60 });
    EXPECT_EQ(configuration.timeoutIntervalForResource, platform::http::Seconds { 60 });
    EXPECT_EQ(configuration.httpMaximumConnectionsPerHost, defaults.httpMaximumConnectionsPerHost);
}

TEST(RestConnectorSessions, EachConfigurationReplacesTheSession)
{
    auto connector = std::make_shared<RestConnector>();
    connector->configSessionForData();
    const auto first = connector->session;
    connector->configSessionForDownload();
    EXPECT_NE(connector->session, first);
}
