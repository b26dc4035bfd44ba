#include "rest/RestConnector_Old.h"

#include "RestTestSupport.h"
#include "platform/HttpErrors.h"
#include "rest/DownloadConnection.h"
#include "rest/RequestTimeout.h"
#include "support/Eventually.h"

#include <future>

using namespace resttest;
using namespace rest;
using platform::Value;

namespace {

class RestConnectorOld : public RestClientTest {
protected:
    RestConnectorOld()
        : RestClientTest(RestServer::reply("{\"ReturnStatus\":\"1\"}"))
    {
    }

    // A callback that records its calls and whether they ran on the connector's operation queue.
    Finished recordingOnQueue()
    {
        return [this, record = finished.callback()](const TransportObject& object, TransportStatus status) {
            ranOnOperationQueue = connector->operationQueue->isCurrent();
            record(object, status);
        };
    }

    std::shared_ptr<RestConnector_Old> connector = std::make_shared<RestConnector_Old>();
    FinishedRecorder finished;
    std::atomic<bool> ranOnOperationQueue { false };
};

// Waits until the queue has no operation left.
bool idle(const OperationQueue& queue)
{
    return testsupport::eventually([&] { return queue.operations().empty(); });
}

}

TEST_F(RestConnectorOld, TheCompletionRunsOnTheRequestsOwnOperationQueueNotOnTheMainQueue)
{
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, recordingOnQueue());
    ASSERT_TRUE(finished.waitFor());
    const auto call = finished.only();
    EXPECT_EQ(std::get<1>(call.arguments), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(call.arguments)), nullptr);
    EXPECT_EQ(*valueIn(std::get<0>(call.arguments)), Value::dictionary({ { "ReturnStatus", "1" } }));
    EXPECT_TRUE(ranOnOperationQueue);
    EXPECT_FALSE(call.place.onMainQueue);
    EXPECT_NE(call.place.thread, std::this_thread::get_id());
}

TEST_F(RestConnectorOld, EachRequestGetsAQueueOfItsOwn)
{
    auto other = std::make_shared<RestConnector_Old>();
    FinishedRecorder otherFinished;
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    other->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, otherFinished.callback());
    ASSERT_TRUE(finished.waitFor());
    ASSERT_TRUE(otherFinished.waitFor());
    ASSERT_NE(connector->operationQueue, nullptr);
    EXPECT_NE(connector->operationQueue, other->operationQueue);
}

TEST_F(RestConnectorOld, ItSendsTheSameRequestWithoutSessionHeaders)
{
    connector->startAsyncTask(
        "Registration.svc/RegisterComputer", Value::dictionary({ { "UserID", "7" } }), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    const auto received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].path, "Registration.svc/RegisterComputer");
    EXPECT_EQ(received[0].body, "{\n  \"UserID\" : \"7\"\n}");
    EXPECT_EQ(received[0].header("Content-Type"), "application/json");
    EXPECT_EQ(received[0].header("Content-Length"), std::to_string(received[0].body.size()));
    EXPECT_EQ(received[0].header("Accept"), "*/*");
    EXPECT_TRUE(log.contains("Json String {\n  \"UserID\" : \"7\"\n}"));
}

TEST_F(RestConnectorOld, WithoutNetworkItCallsBackAtOnceWithNothingAndStatusOne)
{
    platform::PinnedReachabilityFlags unreachable { 0 };
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    expectNotReachableAtOnce(finished);
    EXPECT_EQ(connector->operationQueue, nullptr);
}

TEST_F(RestConnectorOld, ParametersThatAreNotJsonCallBackAtOnceWithStatusFour)
{
    connector->startAsyncTask(
        "Test.svc/Method", Value::dictionary({ { "When", Value::date(0) } }), nullptr, finished.callback());
    ASSERT_EQ(finished.count(), 1u);
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportRequestNotJson);
    EXPECT_NE(errorIn(std::get<0>(finished.only().arguments)), nullptr);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestConnectorOld, AReplyThatIsNotJsonGivesStatusFiveFollowedByTheCancelOfTheQueuesLastOperation)
{
    RestServer html(RestServer::reply("<html></html>", 200, "text/html"));
    const auto pointAtHtml = serverAt(html.url("/"));
    // An operation submitted by the callback is the queue's last one when the callback returns.
    auto followerRan = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<Operation> follower;
    auto record = finished.callback();
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr,
        [&, record](const TransportObject& object, TransportStatus status) {
            connector->operationQueue->async([followerRan] { *followerRan = true; });
            follower = connector->operationQueue->operations().back();
            record(object, status);
        });
    ASSERT_TRUE(finished.waitFor());
    ASSERT_TRUE(idle(*connector->operationQueue));
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportReplyNotJson);
    ASSERT_NE(follower, nullptr);
    EXPECT_TRUE(follower->isCancelled());
    EXPECT_FALSE(*followerRan);
}

TEST_F(RestConnectorOld, AJsonReplyIsAlsoFollowedByTheCancelOfTheRunningCompletionItself)
{
    std::shared_ptr<Operation> running;
    auto record = finished.callback();
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr,
        [&, record](const TransportObject& object, TransportStatus status) {
            running = connector->operationQueue->operations().back();
            EXPECT_FALSE(running->isCancelled());
            record(object, status);
        });
    ASSERT_TRUE(finished.waitFor());
    ASSERT_TRUE(idle(*connector->operationQueue));
    EXPECT_EQ(std::get<1>(finished.only().arguments), TransportSucceeded);
    ASSERT_NE(running, nullptr);
    EXPECT_TRUE(running->isCancelled());
}

TEST_F(RestConnectorOld, ATransportErrorOfCodeMinusOneCallsNothingButTheCancelStillRuns)
{
    // The injected error is reported as soon as the request starts; a gate on the connector's queue holds the
    // completion back until an operation has been queued behind it.
    std::promise<void> gateOpened;
    std::shared_future<void> gate = gateOpened.get_future().share();
    platform::http::testhooks::setErrorInjector([this, gate](const platform::http::Request&) {
        connector->operationQueue->async([gate] { gate.wait(); });
        return platform::http::urlError(platform::http::URLErrorUnknown);
    });
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    platform::http::testhooks::setErrorInjector(nullptr);
    auto followerRan = std::make_shared<std::atomic<bool>>(false);
    connector->operationQueue->async([followerRan] { *followerRan = true; });
    const auto follower = connector->operationQueue->operations().back();
    gateOpened.set_value();
    ASSERT_TRUE(idle(*connector->operationQueue));

    EXPECT_EQ(finished.count(), 0u);
    EXPECT_TRUE(log.contains("error code at rest connector strt async task......"));
    EXPECT_TRUE(follower->isCancelled());
    EXPECT_FALSE(*followerRan);
}

TEST_F(RestConnectorOld, ARefusedConnectionGivesStatusTwo)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    const auto [object, status] = finished.only().arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(object), nullptr);
    EXPECT_EQ(errorIn(object)->code, platform::http::URLErrorCannotConnectToHost);
}

TEST_F(RestConnectorOld, AServerThatNeverAnswersTimesOutWithStatusTwo)
{
    testhooks::ShortenedRequestTimeout shortened { platform::http::Seconds { 0.3 } };
    httptest::RawSocketServer silent([](int connection, httptest::RawSocketServer& self) {
        httptest::RawSocketServer::readRequestHead(connection);
        self.holdOpen(connection);
    });
    const auto pointAtSilent = serverAt(silent.url("/"));
    connector->startAsyncTask("Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
    ASSERT_TRUE(finished.waitFor());
    const auto [object, status] = finished.only().arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_NE(errorIn(object), nullptr);
    EXPECT_EQ(errorIn(object)->code, platform::http::URLErrorTimedOut);
}

TEST_F(RestConnectorOld, TheProgressCallbackIsKeptAndTheConnectionFieldIsNeverSet)
{
    int progressCalls = 0;
    connector->startAsyncTask(
        "Test.svc/Method", Value::dictionary(), [&](std::int64_t, std::int64_t) { ++progressCalls; },
        finished.callback());
    ASSERT_TRUE(finished.waitFor());
    EXPECT_TRUE(connector->progressHandler);
    EXPECT_EQ(progressCalls, 0);
    EXPECT_EQ(connector->connection, nullptr);
}

TEST(RestConnectorOldURL, TheAbsoluteURLIsBuiltAsTheCurrentTransportBuildsIt)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "example.test:9000");
    EXPECT_EQ(RestConnector_Old().getAbsoluteURL("MAC/ErrorLog.svc/LogError"),
        "http://example.test:9000/KorbanholdRestService/MAC/ErrorLog.svc/LogError");
}

namespace {

// Records what a connection tells its delegate, with the connection's tag at that time.
class RecordingConnectionDelegate : public URLConnectionDelegate {
public:
    void didReceiveResponse(URLConnection& connection, const platform::http::Response& response) override
    {
        add("response " + std::to_string(response.statusCode) + " tag " + tagOf(connection));
    }
    void didReceiveData(URLConnection&, const platform::Bytes& data) override
    {
        add("data " + std::string(data.begin(), data.end()));
    }
    void didFailWithError(URLConnection&, const platform::Error& error) override
    {
        add("failed " + std::to_string(error.code));
    }
    void connectionDidFinishLoading(URLConnection&) override { add("finished"); }

    std::vector<std::string> events() const
    {
        std::lock_guard lock(mutex);
        return recorded;
    }
    bool waitForEnd() const
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 10s, [&] {
            return !recorded.empty() && (recorded.back() == "finished" || recorded.back().starts_with("failed"));
        });
    }

private:
    static std::string tagOf(URLConnection& connection)
    {
        const auto& tag = static_cast<DownloadConnection&>(connection).tag;
        return tag ? tag->description() : "(none)";
    }
    void add(std::string event)
    {
        std::lock_guard lock(mutex);
        EXPECT_TRUE(platform::Queue::main()->isCurrent());
        recorded.push_back(std::move(event));
        changed.notify_all();
    }

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<std::string> recorded;
};

class DownloadConnectionTest : public RestClientTest {
protected:
    DownloadConnectionTest()
        : RestClientTest(RestServer::reply("payload"))
    {
    }

    platform::http::Request request() const
    {
        platform::http::Request request;
        request.url = server.url("/KorbanholdRestService/file");
        return request;
    }

    std::shared_ptr<RecordingConnectionDelegate> delegate = std::make_shared<RecordingConnectionDelegate>();
};

}

TEST_F(DownloadConnectionTest, AConnectionKeepsItsTagAndTellsItsDelegateTheResponseTheDataAndTheEnd)
{
    const auto connection = DownloadConnection::initWithRequest(request(), delegate, Value("first"));
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(connection->tag, Value("first"));
    ASSERT_TRUE(delegate->waitForEnd());
    EXPECT_EQ(delegate->events(), (std::vector<std::string> { "response 200 tag first", "data payload", "finished" }));
}

TEST_F(DownloadConnectionTest, AConnectionNotStartedImmediatelySendsNothingUntilStarted)
{
    const auto connection = DownloadConnection::initWithRequest(request(), delegate, false, Value::integer(7));
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(server.received().empty());
    connection->start();
    ASSERT_TRUE(delegate->waitForEnd());
    EXPECT_EQ(server.received().size(), 1u);
    EXPECT_EQ(delegate->events().front(), "response 200 tag 7");
}

TEST_F(DownloadConnectionTest, AConnectionThatFailsTellsItsDelegateTheError)
{
    auto failing = request();
    failing.url = httptest::loopbackURL(httptest::closedLoopbackPort(), "/file");
    DownloadConnection::initWithRequest(failing, delegate, std::nullopt);
    ASSERT_TRUE(delegate->waitForEnd());
    EXPECT_EQ(delegate->events(), (std::vector<std::string> { "failed -1004" }));
}

TEST_F(DownloadConnectionTest, TheTagCanBeReplaced)
{
    const auto connection = DownloadConnection::initWithRequest(request(), delegate, false, Value("old"));
    connection->tag = Value("new");
    connection->start();
    ASSERT_TRUE(delegate->waitForEnd());
    EXPECT_EQ(delegate->events().front(), "response 200 tag new");
}
