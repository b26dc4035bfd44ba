#include "platform/HttpSession.h"

#include "HttpTestServers.h"
#include "platform/Log.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>

using namespace platform::http;
using platform::Bytes;
using platform::Error;
using platform::Queue;
using namespace std::chrono_literals;
using httptest::LoopbackHttpServer;
using httptest::RawSocketServer;

namespace {

std::string text(const std::optional<Bytes>& bytes)
{
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string("(absent)");
}

Request post(std::string url, std::string_view body = {})
{
    Request request;
    request.url = std::move(url);
    request.httpMethod = "POST";
    request.httpBody = std::string(body);
    return request;
}

// Records the tasks a delegate hears about, and the order relative to the completion handlers.
class RecordingDelegate : public SessionDelegate {
public:
    void taskDidComplete(Session&, Task& task, const std::optional<Error>& error) override
    {
        std::lock_guard lock(mutex);
        events.push_back("delegate " + std::to_string(task.taskIdentifier()) + " "
            + (error ? std::to_string(error->code) : std::string("ok")));
    }
    std::mutex mutex;
    std::vector<std::string> events;
};

// Answers POSTs to `path` with a JSON `reply` and keeps the last request it received.
class RecordingServer {
public:
    RecordingServer(const std::string& path, std::string reply)
        : m_path(path)
    {
        m_server.server.Post(path, [this, reply](const httplib::Request& request, httplib::Response& response) {
            std::lock_guard lock(m_mutex);
            m_lastRequest = request;
            response.set_content(reply, "application/json");
        });
        m_server.start();
    }

    std::string url() const { return m_server.url(m_path); }
    httplib::Request lastRequest() const
    {
        std::lock_guard lock(m_mutex);
        return m_lastRequest;
    }

private:
    LoopbackHttpServer m_server;
    std::string m_path;
    mutable std::mutex m_mutex;
    httplib::Request m_lastRequest;
};

class HttpSession : public ::testing::Test {
protected:
    std::shared_ptr<Queue> queue = Queue::makeSerial("http-session-test");

    std::shared_ptr<Session> makeSession(Configuration configuration = Configuration::defaultConfiguration())
    {
        return Session::make(std::move(configuration), {}, queue);
    }

    // Starts the task that `make` creates with the given handler and waits (at most ten seconds) for its result.
    Result run(const std::function<std::shared_ptr<Task>(CompletionHandler)>& make)
    {
        auto promise = std::make_shared<std::promise<Result>>();
        auto future = promise->get_future();
        make([promise](const Result& result) { promise->set_value(result); })->resume();
        if (future.wait_for(10s) != std::future_status::ready) {
            ADD_FAILURE() << "the task did not report";
            return {};
        }
        return future.get();
    }

    Result runData(Request request, Configuration configuration = Configuration::defaultConfiguration())
    {
        auto session = makeSession(std::move(configuration));
        return run([&](CompletionHandler handler) { return session->dataTask(request, std::move(handler)); });
    }

    // Waits until everything queued so far on the test queue has run.
    void drainQueue() { queue->sync([] { }); }
};

void expectError(const Result& result, long code, const std::string& description)
{
    ASSERT_TRUE(result.error.has_value()) << "no error; status " << (result.response ? result.response->statusCode : 0);
    EXPECT_EQ(result.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(result.error->code, code);
    EXPECT_EQ(result.error->localizedDescription, description);
    EXPECT_FALSE(result.data.has_value());
}

}

// --- Replies.

TEST_F(HttpSession, ADataTaskDeliversTheStatusTheHeadersAndTheBody)
{
    LoopbackHttpServer server;
    server.server.Post("/hello", [](const httplib::Request&, httplib::Response& response) {
        response.set_header("X-Answer", "42");
        response.set_content("{\"greeting\":\"hello\"}", "application/json");
    });
    server.start();

    const Result result = runData(post(server.url("/hello"), "{}"));
    EXPECT_FALSE(result.error);
    EXPECT_EQ(text(result.data), "{\"greeting\":\"hello\"}");
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->statusCode, 200);
    EXPECT_EQ(result.response->url, server.url("/hello"));
    ASSERT_NE(findHeader(result.response->allHeaderFields, "x-answer"), nullptr);
    EXPECT_EQ(*findHeader(result.response->allHeaderFields, "X-ANSWER"), "42");
    EXPECT_FALSE(result.location);
}

TEST_F(HttpSession, AJsonReplyUnderStatus500ArrivesLikeAnyOtherReply)
{
    LoopbackHttpServer server;
    server.server.Post("/fails", [](const httplib::Request&, httplib::Response& response) {
        response.status = 500;
        response.set_content("[]", "application/json");
    });
    server.start();

    const Result result = runData(post(server.url("/fails"), "{}"));
    EXPECT_FALSE(result.error);
    EXPECT_EQ(text(result.data), "[]");
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->statusCode, 500);
}

TEST_F(HttpSession, AnEmptyReplyBodyIsEmptyDataNotAbsentData)
{
    LoopbackHttpServer server;
    server.server.Post("/empty", [](const httplib::Request&, httplib::Response& response) { response.status = 204; });
    server.start();

    const Result result = runData(post(server.url("/empty")));
    EXPECT_FALSE(result.error);
    ASSERT_TRUE(result.data);
    EXPECT_TRUE(result.data->empty());
}

TEST_F(HttpSession, TheRequestGoesOutWithItsMethodHeadersAndBody)
{
    RecordingServer server("/record", "{}");
    Request request = post(server.url(), "{\n  \"key\" : \"value\"\n}");
    request.setValue(std::to_string(request.httpBody.size()), "Content-Length");
    request.addValue("application/json", "Content-Type");
    ASSERT_FALSE(runData(request).error);

    const httplib::Request seen = server.lastRequest();
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.body, "{\n  \"key\" : \"value\"\n}");
    EXPECT_EQ(seen.get_header_value("Content-Type"), "application/json");
    EXPECT_EQ(seen.get_header_value("Content-Length"), "21");
    EXPECT_EQ(seen.get_header_value_count("Content-Length"), 1u);
    EXPECT_FALSE(seen.has_header("Expect"));
}

// A large body is not kept while the reply is handled: the task lets it go once the transfer that sent it has ended.
TEST_F(HttpSession, TheRequestBodyIsReleasedOnceTheTransferHasEnded)
{
    RecordingServer server("/record", "{}");
    auto session = makeSession();
    std::shared_ptr<Task> task;
    const Result result = run([&](CompletionHandler handler) {
        task = session->dataTask(post(server.url(), "{\"key\" : 1}"), std::move(handler));
        EXPECT_EQ(task->originalRequest().httpBody, "{\"key\" : 1}");
        return task;
    });
    ASSERT_FALSE(result.error);
    EXPECT_EQ(server.lastRequest().body, "{\"key\" : 1}");
    EXPECT_TRUE(task->originalRequest().httpBody.empty());
    EXPECT_EQ(task->originalRequest().url, server.url());
}

TEST_F(HttpSession, SessionHeadersAreAddedUnlessTheRequestSetsTheFieldItself)
{
    RecordingServer server("/record", "{}");
    Configuration configuration;
    configuration.additionalHeaders = { { "Accept", "application/json" }, { "Content-Type", "application/json" } };
    Request request = post(server.url(), "x");
    request.setValue("application/octet-stream", "content-type");
    ASSERT_FALSE(runData(request, configuration).error);

    const httplib::Request seen = server.lastRequest();
    EXPECT_EQ(seen.get_header_value("Accept"), "application/json");
    EXPECT_EQ(seen.get_header_value("Content-Type"), "application/octet-stream");
    EXPECT_EQ(seen.get_header_value_count("Content-Type"), 1u);
}

TEST(HttpRequest, SetValueReplacesAFieldAndAddValueJoinsWithAComma)
{
    Request request;
    request.setValue("a", "X-Field");
    request.setValue("b", "x-field");
    request.addValue("c", "X-FIELD");
    request.addValue("d", "Other");
    ASSERT_EQ(request.headers.size(), 2u);
    EXPECT_EQ(*findHeader(request.headers, "x-field"), "b,c");
    EXPECT_EQ(*findHeader(request.headers, "other"), "d");
    EXPECT_EQ(findHeader(request.headers, "missing"), nullptr);
}

TEST_F(HttpSession, RedirectsAreFollowedToTheFinalReply)
{
    LoopbackHttpServer server;
    server.server.Get("/old", [](const httplib::Request&, httplib::Response& response) { response.set_redirect("/new"); });
    server.server.Get("/new", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("moved here", "text/plain");
    });
    server.start();

    Request request;
    request.url = server.url("/old");
    const Result result = runData(request);
    EXPECT_EQ(text(result.data), "moved here");
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->url, server.url("/new"));
}

TEST_F(HttpSession, AResponsePrintsItsURLStatusAndHeaders)
{
    const Response response { "http://127.0.0.1:1/x", 404, { { "Content-Type", "text/html" } } };
    const platform::Value headers = platform::Value::dictionary({ { "Content-Type", "text/html" } });
    EXPECT_EQ(platform::format("%@", response),
        "{ URL: http://127.0.0.1:1/x } { Status Code: 404, Headers " + headers.description() + " }");
    EXPECT_EQ(platform::format("%@", std::optional<Response>()), "(null)");
}

// --- Failures and their error codes.

TEST_F(HttpSession, ARefusedConnectionFailsWithCannotConnect)
{
    const Result result = runData(post(httptest::loopbackURL(httptest::closedLoopbackPort(), "/x"), "{}"));
    expectError(result, -1004, "Could not connect to the server.");
    EXPECT_FALSE(result.response);
}

TEST_F(HttpSession, AHostNameThatDoesNotResolveFailsWithCannotFindHost)
{
    expectError(runData(post("http://no-such-host.invalid/x", "{}")), -1003,
        "A server with the specified hostname could not be found.");
}

TEST_F(HttpSession, AURLThatIsNotPlainHTTPIsRefusedBeforeAnythingIsSent)
{
    expectError(runData(post("https://127.0.0.1:1/x")), -1002, "unsupported URL");
    expectError(runData(post("not a url")), -1000, "bad URL");
}

TEST_F(HttpSession, ASilentServerTimesOutAfterTheSessionsWaitForDataLimit)
{
    RawSocketServer server([](int connection, RawSocketServer& self) { self.holdOpen(connection); });
    Configuration configuration;
    configuration.timeoutIntervalForRequest = Seconds(0.2);

    const auto started = std::chrono::steady_clock::now();
    const Result result = runData(post(server.url("/x"), "{}"), configuration);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    expectError(result, -1001, "The request timed out.");
    EXPECT_GE(elapsed, 200ms);
    EXPECT_LT(elapsed, 3s);
}

TEST_F(HttpSession, TheRequestsOwnWaitForDataLimitCountsWhenItIsShorter)
{
    RawSocketServer server([](int connection, RawSocketServer& self) { self.holdOpen(connection); });
    Request request = post(server.url("/x"), "{}");
    request.timeoutInterval = Seconds(0.2);
    expectError(runData(request), -1001, "The request timed out.");
}

TEST_F(HttpSession, ATricklingReplyOutlivesTheWaitForDataLimitButNotTheWholeTaskLimit)
{
    LoopbackHttpServer server;
    server.server.Get("/trickle", [](const httplib::Request&, httplib::Response& response) {
        response.set_chunked_content_provider("text/plain", [](std::size_t offset, httplib::DataSink& sink) {
            if (offset >= 8) {
                sink.done();
                return true;
            }
            std::this_thread::sleep_for(100ms);
            return sink.write("x", 1);
        });
    });
    server.start();
    Request request;
    request.url = server.url("/trickle");

    Configuration patient;
    patient.timeoutIntervalForRequest = Seconds(0.4);
    const Result trickled = runData(request, patient);
    EXPECT_FALSE(trickled.error);
    EXPECT_EQ(text(trickled.data), "xxxxxxxx");

    Configuration hurried;
    hurried.timeoutIntervalForResource = Seconds(0.4);
    const Result cut = runData(request, hurried);
    expectError(cut, -1001, "The request timed out.");
    ASSERT_TRUE(cut.response) << "the reply's head had arrived";
    EXPECT_EQ(cut.response->statusCode, 200);
}

TEST_F(HttpSession, AConnectionDroppedInTheMiddleOfTheReplyFailsWithConnectionLost)
{
    RawSocketServer server([](int connection, RawSocketServer&) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"partial\":");
    });
    const Result result = runData(post(server.url("/x"), "{}"));
    expectError(result, -1005, "The network connection was lost.");
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->statusCode, 200);
}

TEST_F(HttpSession, AConnectionClosedWithoutAnyReplyFailsWithConnectionLost)
{
    RawSocketServer server([](int connection, RawSocketServer&) { RawSocketServer::readRequestHead(connection); });
    expectError(runData(post(server.url("/x"), "{}")), -1005, "The network connection was lost.");
}

TEST_F(HttpSession, AReplyThatIsNotHTTPFailsWithBadServerResponse)
{
    RawSocketServer notHTTP([](int connection, RawSocketServer&) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection, "<html>hello</html>\r\n\r\n");
    });
    expectError(runData(post(notHTTP.url("/x"), "{}")), -1011, "bad server response");

    RawSocketServer badStatusLine([](int connection, RawSocketServer&) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection, "HTTP/1.1 OK\r\n\r\n");
    });
    expectError(runData(post(badStatusLine.url("/x"), "{}")), -1011, "bad server response");
}

// --- Cancel, resume and the task's life.

TEST_F(HttpSession, CancelEndsARunningTaskWithCancelled)
{
    RawSocketServer server([](int connection, RawSocketServer& self) { self.holdOpen(connection); });
    auto session = makeSession();
    std::promise<Result> reported;
    auto task = session->dataTask(post(server.url("/x"), "{}"), [&](const Result& result) { reported.set_value(result); });
    task->resume();
    EXPECT_EQ(task->state(), Task::State::Running);
    for (int waited = 0; server.accepted() == 0 && waited < 500; ++waited)
        std::this_thread::sleep_for(10ms);
    ASSERT_EQ(server.accepted(), 1);

    task->cancel();
    auto future = reported.get_future();
    ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
    expectError(future.get(), -999, "cancelled");
    EXPECT_EQ(task->state(), Task::State::Completed);
    task->cancel(); // an ended task stays as it is
    task->resume();
    EXPECT_EQ(task->state(), Task::State::Completed);
}

TEST_F(HttpSession, CancelOfATaskThatNeverStartedReportsCancelledWithoutConnecting)
{
    RawSocketServer server([](int, RawSocketServer&) { });
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        auto task = session->dataTask(post(server.url("/x"), "{}"), std::move(handler));
        task->cancel();
        return task;
    });
    expectError(result, -999, "cancelled");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(server.accepted(), 0);
}

TEST_F(HttpSession, ATaskThatIsNeverResumedNeverConnectsAndNeverReports)
{
    RawSocketServer server([](int, RawSocketServer&) { });
    auto session = makeSession();
    std::atomic<bool> reported { false };
    auto task = session->dataTask(post(server.url("/x"), "{}"), [&](const Result&) { reported = true; });
    std::this_thread::sleep_for(100ms);
    drainQueue();
    EXPECT_EQ(task->state(), Task::State::Suspended);
    EXPECT_EQ(server.accepted(), 0);
    EXPECT_FALSE(reported);
}

TEST_F(HttpSession, ResumingARunningTaskAgainSendsNothingMore)
{
    LoopbackHttpServer server;
    std::atomic<int> requests { 0 };
    server.server.Post("/count", [&](const httplib::Request&, httplib::Response& response) {
        ++requests;
        std::this_thread::sleep_for(50ms);
        response.set_content("{}", "application/json");
    });
    server.start();
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        auto task = session->dataTask(post(server.url("/count"), "{}"), std::move(handler));
        task->resume();
        return task; // resumed once more by run()
    });
    EXPECT_FALSE(result.error);
    EXPECT_EQ(requests, 1);
}

TEST_F(HttpSession, EveryTaskReportsExactlyOnceEvenWhenCancelledAsItFinishes)
{
    LoopbackHttpServer server;
    server.server.Post("/fast", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("{}", "application/json");
    });
    server.start();
    auto session = makeSession();
    constexpr int taskCount = 50;
    std::mutex mutex;
    std::condition_variable allReported;
    std::map<std::uint64_t, int> reports;
    std::vector<std::shared_ptr<Task>> tasks;
    for (int index = 0; index < taskCount; ++index) {
        tasks.push_back(session->dataTask(post(server.url("/fast"), "{}"), [&, index](const Result&) {
            std::lock_guard lock(mutex);
            ++reports[static_cast<std::uint64_t>(index)];
            allReported.notify_all();
        }));
    }
    for (std::size_t index = 0; index < tasks.size(); ++index) {
        tasks[index]->resume();
        std::this_thread::sleep_for(std::chrono::microseconds(100 * index));
        tasks[index]->cancel();
    }
    std::unique_lock lock(mutex);
    ASSERT_TRUE(allReported.wait_for(lock, 10s, [&] { return reports.size() == taskCount; }));
    lock.unlock();
    std::this_thread::sleep_for(100ms);
    drainQueue();
    lock.lock();
    for (const auto& [index, count] : reports)
        EXPECT_EQ(count, 1) << "task " << index;
}

TEST_F(HttpSession, TasksHaveDistinctIdentifiersAndKeepTheirDescription)
{
    auto session = makeSession();
    auto first = session->dataTask(post("http://127.0.0.1:1/"), {});
    auto second = session->dataTask(post("http://127.0.0.1:1/"), {});
    EXPECT_NE(first->taskIdentifier(), second->taskIdentifier());
    first->setTaskDescription("report.pdf");
    EXPECT_EQ(first->taskDescription(), "report.pdf");
    EXPECT_EQ(second->taskDescription(), "");
    EXPECT_EQ(first->originalRequest().url, "http://127.0.0.1:1/");
    EXPECT_FALSE(first->response());
}

// --- Where reports run.

TEST_F(HttpSession, TheHandlerRunsOnTheDelegateQueueAndThenTheDelegateHears)
{
    LoopbackHttpServer server;
    server.server.Post("/x", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("{}", "application/json");
    });
    server.start();
    auto delegate = std::make_shared<RecordingDelegate>();
    auto session = Session::make(Configuration::defaultConfiguration(), delegate, queue);
    std::shared_ptr<Task> task;
    const Result result = run([&](CompletionHandler handler) {
        task = session->dataTask(post(server.url("/x"), "{}"), [&, handler](const Result& result) {
            EXPECT_TRUE(queue->isCurrent());
            {
                std::lock_guard lock(delegate->mutex);
                delegate->events.push_back("handler");
            }
            handler(result);
        });
        return task;
    });
    EXPECT_FALSE(result.error);
    drainQueue();
    std::lock_guard lock(delegate->mutex);
    EXPECT_EQ(delegate->events,
        (std::vector<std::string> { "handler", "delegate " + std::to_string(task->taskIdentifier()) + " ok" }));
    ASSERT_TRUE(task->response());
    EXPECT_EQ(task->response()->statusCode, 200);
}

TEST_F(HttpSession, TheDelegateHearsOfFailuresWithTheirError)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    auto session = Session::make(Configuration::defaultConfiguration(), delegate, queue);
    std::shared_ptr<Task> task;
    run([&](CompletionHandler handler) {
        task = session->dataTask(post(httptest::loopbackURL(httptest::closedLoopbackPort(), "/x")), std::move(handler));
        return task;
    });
    drainQueue();
    std::lock_guard lock(delegate->mutex);
    EXPECT_EQ(delegate->events,
        std::vector<std::string> { "delegate " + std::to_string(task->taskIdentifier()) + " -1004" });
}

TEST_F(HttpSession, TheSessionDoesNotKeepItsDelegateAlive)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    std::weak_ptr<RecordingDelegate> watcher = delegate;
    auto session = Session::make(Configuration::defaultConfiguration(), delegate, queue);
    delegate.reset();
    EXPECT_TRUE(watcher.expired());
    const Result result = run([&](CompletionHandler handler) {
        return session->dataTask(post(httptest::loopbackURL(httptest::closedLoopbackPort(), "/x")), std::move(handler));
    });
    EXPECT_TRUE(result.error);
}

TEST_F(HttpSession, ASessionWithoutADelegateQueueReportsOnASerialQueueOfItsOwn)
{
    auto session = Session::make(Configuration::defaultConfiguration(), {}, nullptr);
    ASSERT_NE(session->delegateQueue(), nullptr);
    std::promise<bool> onSessionQueue;
    session->dataTask(post(httptest::loopbackURL(httptest::closedLoopbackPort(), "/x")), [&](const Result&) {
        onSessionQueue.set_value(session->delegateQueue()->isCurrent());
    })->resume();
    auto future = onSessionQueue.get_future();
    ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(future.get());
}

// --- Uploads and downloads.

TEST_F(HttpSession, AnUploadTaskSendsTheFilesBytesAsTheBody)
{
    RecordingServer server("/upload", "{\"stored\":true}");
    testsupport::TempDir folder;
    const std::string contents(100000, 'k');
    testsupport::writeFile(folder / "staged.bin", contents);

    Request request = post(server.url());
    request.setValue("application/octet-stream", "Content-Type");
    request.setValue("/Korbanhold/a.bin", "FilePath");
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        return session->uploadTask(request, folder / "staged.bin", std::move(handler));
    });
    EXPECT_FALSE(result.error);
    EXPECT_EQ(text(result.data), "{\"stored\":true}");
    const httplib::Request seen = server.lastRequest();
    EXPECT_EQ(seen.body, contents);
    EXPECT_EQ(seen.get_header_value("Content-Length"), "100000");
    EXPECT_EQ(seen.get_header_value("Content-Type"), "application/octet-stream");
    EXPECT_EQ(seen.get_header_value("FilePath"), "/Korbanhold/a.bin");
}

TEST_F(HttpSession, AnUploadOfAFileThatCannotBeOpenedFailsBeforeAnythingIsSent)
{
    RawSocketServer server([](int, RawSocketServer&) { });
    testsupport::TempDir folder;
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        return session->uploadTask(post(server.url("/upload")), folder / "missing.bin", std::move(handler));
    });
    expectError(result, -1100, "The requested URL was not found on this server.");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(server.accepted(), 0);
}

TEST_F(HttpSession, AStreamedUploadSendsWhatTheStreamGivesInChunks)
{
    RecordingServer server("/stream", "{}");
    auto pieces = std::make_shared<std::vector<std::string>>(std::vector<std::string> { "alpha-", "beta-", "gamma" });
    BodyStream stream = [pieces, next = std::size_t { 0 }](char* buffer, std::size_t capacity) mutable -> std::size_t {
        if (next == pieces->size())
            return 0;
        const std::string& piece = (*pieces)[next++];
        const std::size_t length = std::min(capacity, piece.size());
        std::memcpy(buffer, piece.data(), length);
        return length;
    };
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        return session->uploadTask(post(server.url()), stream, std::move(handler));
    });
    EXPECT_FALSE(result.error);
    const httplib::Request seen = server.lastRequest();
    EXPECT_EQ(seen.body, "alpha-beta-gamma");
    EXPECT_EQ(seen.get_header_value("Transfer-Encoding"), "chunked");
}

TEST_F(HttpSession, ADownloadWritesTheReplyToAFileThatIsRemovedOnceTheHandlerHasRun)
{
    LoopbackHttpServer server;
    server.server.Get("/file", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("downloaded bytes", "application/octet-stream");
    });
    server.start();
    auto session = makeSession();
    std::string contentsInHandler;
    const Result result = run([&](CompletionHandler handler) {
        return session->downloadTask(server.url("/file"), [&, handler](const Result& result) {
            if (result.location)
                contentsInHandler = testsupport::readFile(*result.location);
            handler(result);
        });
    });
    EXPECT_FALSE(result.error);
    EXPECT_FALSE(result.data);
    ASSERT_TRUE(result.location);
    EXPECT_EQ(contentsInHandler, "downloaded bytes");
    drainQueue();
    EXPECT_FALSE(std::filesystem::exists(*result.location));
}

TEST_F(HttpSession, AHandlerThatRaisesIsLoggedAndTheDelegateStillHearsAndTheDownloadIsStillRemoved)
{
    LoopbackHttpServer server;
    server.server.Get("/file", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("downloaded bytes", "application/octet-stream");
    });
    server.start();
    testsupport::LogCapture log;
    auto delegate = std::make_shared<RecordingDelegate>();
    auto session = Session::make(Configuration::defaultConfiguration(), delegate, queue);
    std::optional<std::filesystem::path> location;
    auto task = session->downloadTask(server.url("/file"), [&](const Result& result) {
        location = result.location;
        throw std::runtime_error("the handler gave up");
    });
    task->resume();
    ASSERT_TRUE(testsupport::eventually([&] { return task->state() == Task::State::Completed; }));
    drainQueue();
    const std::string uncaught = "Uncaught exception in the completion handler of HTTP task "
        + std::to_string(task->taskIdentifier()) + ": the handler gave up";
    EXPECT_EQ(log.lines(), std::vector<std::string> { uncaught });
    std::lock_guard lock(delegate->mutex);
    EXPECT_EQ(delegate->events, std::vector<std::string> { "delegate " + std::to_string(task->taskIdentifier()) + " ok" });
    ASSERT_TRUE(location);
    EXPECT_FALSE(std::filesystem::exists(*location));
}

TEST_F(HttpSession, AFailedDownloadLeavesNoFileBehind)
{
    RawSocketServer server([](int connection, RawSocketServer&) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly part");
    });
    // Downloads go to the temporary folder; this test's own one, so that the downloads of tests running beside it
    // in other processes are not counted.
    const testsupport::TempDir temporaryFolder;
    const testsupport::ScopedEnvironment temporaryFolderSetting("TMPDIR", temporaryFolder.path().string());
    auto session = makeSession();
    const Result result = run([&](CompletionHandler handler) {
        return session->downloadTask(server.url("/file"), std::move(handler));
    });
    expectError(result, -1005, "The network connection was lost.");
    EXPECT_FALSE(result.location);
    EXPECT_TRUE(std::filesystem::is_empty(temporaryFolder.path()));
}

// --- Session settings.

TEST(HttpConfiguration, TheDefaultSettings)
{
    const Configuration configuration = Configuration::defaultConfiguration();
    EXPECT_TRUE(configuration.additionalHeaders.empty());
    EXPECT_TRUE(configuration.allowsCellularAccess);
    EXPECT_EQ(configuration.timeoutIntervalForRequest, Seconds(60));
    EXPECT_EQ(configuration.timeoutIntervalForResource, Seconds(7 * 24 * 3600));
    EXPECT_EQ(configuration.httpMaximumConnectionsPerHost, 6u);
    EXPECT_EQ(Request().timeoutInterval, Seconds(60));
}

TEST_F(HttpSession, CellularAccessIsKeptWithTheSession)
{
    Configuration configuration;
    configuration.allowsCellularAccess = false;
    EXPECT_FALSE(makeSession(configuration)->configuration().allowsCellularAccess);
}

TEST_F(HttpSession, TheConnectionLimitPerHostHoldsBackTheSessionsOtherTasks)
{
    LoopbackHttpServer server;
    std::atomic<int> inFlight { 0 };
    std::atomic<int> mostInFlight { 0 };
    server.server.Post("/slow", [&](const httplib::Request&, httplib::Response& response) {
        const int now = ++inFlight;
        int seen = mostInFlight;
        while (now > seen && !mostInFlight.compare_exchange_weak(seen, now)) { }
        std::this_thread::sleep_for(100ms);
        --inFlight;
        response.set_content("{}", "application/json");
    });
    server.start();

    const auto mostAtOnce = [&](std::size_t limit, int sessions, int tasksPerSession) {
        mostInFlight = 0;
        std::vector<std::shared_ptr<Session>> made;
        std::vector<std::future<Result>> results;
        for (int index = 0; index < sessions; ++index) {
            Configuration configuration;
            configuration.httpMaximumConnectionsPerHost = limit;
            made.push_back(makeSession(configuration));
            for (int task = 0; task < tasksPerSession; ++task) {
                auto promise = std::make_shared<std::promise<Result>>();
                results.push_back(promise->get_future());
                made.back()->dataTask(post(server.url("/slow"), "{}"), [promise](const Result& result) {
                    promise->set_value(result);
                })->resume();
            }
        }
        for (auto& result : results) {
            EXPECT_EQ(result.wait_for(10s), std::future_status::ready);
            EXPECT_FALSE(result.get().error);
        }
        return mostInFlight.load();
    };
    EXPECT_EQ(mostAtOnce(1, 1, 4), 1);
    EXPECT_EQ(mostAtOnce(4, 1, 4), 4);
    EXPECT_EQ(mostAtOnce(1, 4, 1), 4) << "the limit belongs to each session";
}

// --- The test hook.

TEST_F(HttpSession, AnInjectedErrorEndsTheTaskWithoutAnyTraffic)
{
    RawSocketServer server([](int, RawSocketServer&) { });
    testhooks::setErrorInjector([](const Request& request) -> std::optional<Error> {
        if (request.url.ends_with("/fail"))
            return Error { urlErrorDomain, -1, "unknown error" };
        return std::nullopt;
    });
    const Result injected = runData(post(server.url("/fail"), "{}"));
    const Result passed = runData(post(server.url("/pass"), "{}"));
    testhooks::setErrorInjector({});

    expectError(injected, -1, "unknown error");
    EXPECT_EQ(passed.error->code, -1005) << "the other request reached the server";
    EXPECT_EQ(server.accepted(), 1);
}

// --- Authentication challenges.

namespace {

// Answers every POST with 401 and a "WWW-Authenticate" field.
class ChallengingServer {
public:
    ChallengingServer()
    {
        m_server.server.Post("/.*", [](const httplib::Request&, httplib::Response& response) {
            response.status = 401;
            response.set_header("WWW-Authenticate", "Basic realm=\"test\"");
            response.set_content("{}", "application/json");
        });
        m_server.start();
    }
    std::string url() const { return m_server.url("/challenge"); }

private:
    LoopbackHttpServer m_server;
};

// Answers every challenge as `answer` says: with a disposition, or never (the handler is dropped), or later (the
// handler is kept for the test).
class ChallengedDelegate : public RecordingDelegate {
public:
    enum class Answer { DefaultHandling, Cancel, Never, Keep };
    explicit ChallengedDelegate(Answer answer) : m_answer(answer) { }

    void didReceiveChallenge(Session&, Task&, const AuthenticationChallenge& challenge,
        ChallengeCompletionHandler completionHandler) override
    {
        challenges += 1;
        lastChallengeStatus = challenge.response.statusCode;
        if (m_answer == Answer::DefaultHandling)
            completionHandler(ChallengeDisposition::PerformDefaultHandling);
        else if (m_answer == Answer::Cancel)
            completionHandler(ChallengeDisposition::CancelAuthenticationChallenge);
        else if (m_answer == Answer::Keep)
            kept = std::move(completionHandler);
    }

    std::atomic<int> challenges { 0 };
    std::atomic<long> lastChallengeStatus { 0 };
    ChallengeCompletionHandler kept;

private:
    Answer m_answer;
};

class HttpSessionChallenge : public HttpSession {
protected:
    Result runChallenged(ChallengedDelegate::Answer answer, Configuration configuration = Configuration::defaultConfiguration())
    {
        delegate = std::make_shared<ChallengedDelegate>(answer);
        auto session = Session::make(std::move(configuration), delegate, queue);
        return run([&](CompletionHandler handler) { return session->dataTask(post(server.url()), std::move(handler)); });
    }

    ChallengingServer server;
    std::shared_ptr<ChallengedDelegate> delegate;
};

}

TEST_F(HttpSessionChallenge, DefaultHandlingHandsTheReplyOnAsItCame)
{
    Result result = runChallenged(ChallengedDelegate::Answer::DefaultHandling);
    EXPECT_FALSE(result.error.has_value());
    ASSERT_TRUE(result.response.has_value());
    EXPECT_EQ(result.response->statusCode, 401);
    EXPECT_EQ(delegate->challenges, 1);
    EXPECT_EQ(delegate->lastChallengeStatus, 401);
}

TEST_F(HttpSessionChallenge, CancellingTheChallengeEndsTheTaskCancelled)
{
    Result result = runChallenged(ChallengedDelegate::Answer::Cancel);
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->code, URLErrorCancelled);
}

TEST_F(HttpSessionChallenge, AChallengeNeverAnsweredLeavesTheTaskWaitingUntilItsTimeOut)
{
    Configuration configuration = Configuration::defaultConfiguration();
    configuration.timeoutIntervalForRequest = Seconds { 0.3 };
    const auto start = std::chrono::steady_clock::now();
    Result result = runChallenged(ChallengedDelegate::Answer::Never, configuration);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 250ms);
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->code, URLErrorTimedOut);
    EXPECT_EQ(delegate->challenges, 1);
}

TEST_F(HttpSessionChallenge, ATaskWaitingForItsChallengeEndsCancelledWhenCancelled)
{
    auto delegateKeeping = std::make_shared<ChallengedDelegate>(ChallengedDelegate::Answer::Keep);
    auto session = Session::make(Configuration::defaultConfiguration(), delegateKeeping, queue);
    auto promise = std::make_shared<std::promise<Result>>();
    auto future = promise->get_future();
    auto task = session->dataTask(post(server.url()), [promise](const Result& result) { promise->set_value(result); });
    task->resume();
    ASSERT_TRUE(testsupport::eventually([&] { return delegateKeeping->challenges == 1; }, 30s));
    task->cancel();
    ASSERT_EQ(future.wait_for(30s), std::future_status::ready);
    Result result = future.get();
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->code, URLErrorCancelled);
    // An answer that comes after the end changes nothing.
    queue->sync([&] { delegateKeeping->kept(ChallengeDisposition::PerformDefaultHandling); });
    EXPECT_EQ(task->state(), Task::State::Completed);
}
