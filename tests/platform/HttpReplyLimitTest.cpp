// A reply is held in memory only up to a limit (KORBANHOLD_MAX_REPLY_BYTES, 256 MiB by default): past it the task
// fails with "resource exceeds maximum size" (-1103), one log line names the URL, and no data is handed over.

#include "platform/HttpSession.h"

#include "HttpTestServers.h"
#include "platform/HttpTransfer.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

using namespace platform::http;
using namespace std::chrono_literals;
using httptest::RawSocketServer;

namespace {

Result runPost(const std::string& url)
{
    Request request;
    request.url = url;
    request.httpMethod = "POST";
    request.httpBody = { '{', '}' };
    auto session = Session::make(Configuration::defaultConfiguration(), {}, platform::Queue::makeSerial("reply-limit"));
    auto promise = std::make_shared<std::promise<Result>>();
    auto future = promise->get_future();
    session->dataTask(request, [promise](const Result& result) { promise->set_value(result); })->resume();
    if (future.wait_for(30s) != std::future_status::ready) {
        ADD_FAILURE() << "the task did not report";
        return {};
    }
    return future.get();
}

void expectTooLarge(const Result& result)
{
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->code, -1103);
    EXPECT_EQ(result.error->localizedDescription, "resource exceeds maximum size");
    EXPECT_FALSE(result.data.has_value());
}

RawSocketServer replyWithBodyOf(std::size_t size)
{
    return RawSocketServer([size](int connection, RawSocketServer&) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection,
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n" + std::string(size, 'x'));
    });
}

}

TEST(HttpReplyLimit, TheLimitIs256MebibytesUnlessTheEnvironmentSetsAnother)
{
    {
        testsupport::ScopedEnvironment unset("KORBANHOLD_MAX_REPLY_BYTES", std::nullopt);
        EXPECT_EQ(maxReplyBytes(), 268435456u);
    }
    testsupport::ScopedEnvironment limit("KORBANHOLD_MAX_REPLY_BYTES", "4096");
    EXPECT_EQ(maxReplyBytes(), 4096u);
}

TEST(HttpReplyLimit, AReplyAsLargeAsTheLimitArrivesWhole)
{
    testsupport::ScopedEnvironment limit("KORBANHOLD_MAX_REPLY_BYTES", "4096");
    // The limit counts the head's lines too.
    auto server = replyWithBodyOf(4000);
    const Result result = runPost(server.url("/fits"));
    EXPECT_FALSE(result.error);
    ASSERT_TRUE(result.data);
    EXPECT_EQ(result.data->size(), 4000u);
}

TEST(HttpReplyLimit, ALargerReplyEndsTheTaskWithOneLogLineNamingTheURL)
{
    testsupport::ScopedEnvironment limit("KORBANHOLD_MAX_REPLY_BYTES", "4096");
    testsupport::LogCapture log;
    auto server = replyWithBodyOf(100'000);
    expectTooLarge(runPost(server.url("/large")));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "HTTP: the reply to " + server.url("/large")
            + " is larger than 4096 bytes (KORBANHOLD_MAX_REPLY_BYTES); the request ends");
}

TEST(HttpReplyLimit, AChunkedReplyThatNeverEndsEndsAtTheLimit)
{
    testsupport::ScopedEnvironment limit("KORBANHOLD_MAX_REPLY_BYTES", "1000000");
    RawSocketServer server([](int connection, RawSocketServer& self) {
        RawSocketServer::readRequestHead(connection);
        RawSocketServer::send(connection, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        const std::string chunk = "400\r\n" + std::string(1024, 'x') + "\r\n";
        while (!self.stopping() && ::send(connection, chunk.data(), chunk.size(), MSG_NOSIGNAL) > 0) {
        }
    });
    expectTooLarge(runPost(server.url("/endless")));
}
