// Replies that a broken or hostile server could send reach a status, never a crash: huge, truncated, not UTF-8,
// deeply nested, not HTTP at all.

#include "rest/RestConnector.h"
#include "rest/RestInterface.h"

#include "RestTestSupport.h"
#include "platform/HttpErrors.h"

using namespace resttest;
using namespace rest;
using platform::Value;

namespace {

class BadReply : public RestClientTest {
protected:
    // Sends a JSON request to a server that answers with `body` and returns the callback's status.
    TransportStatus statusForReply(const std::string& body)
    {
        RestServer replying(RestServer::reply(body));
        const auto pointAtReplying = serverAt(replying.url("/"));
        return statusOfRequest();
    }

    TransportStatus statusOfRequest()
    {
        FinishedRecorder finished;
        std::make_shared<RestConnector>()->startAsyncTask(
            "Test.svc/Method", Value::dictionary(), nullptr, finished.callback());
        EXPECT_TRUE(finished.waitFor());
        lastObject = finished.only().arguments;
        return std::get<1>(lastObject);
    }

    // The raw bytes `reply` sent on every connection after its request's head, then the connection closed.
    TransportStatus statusForRawReply(const std::string& reply)
    {
        httptest::RawSocketServer raw([reply](int connection, httptest::RawSocketServer&) {
            httptest::RawSocketServer::readRequestHead(connection);
            httptest::RawSocketServer::send(connection, reply);
        });
        const auto pointAtRaw = serverAt(raw.url("/"));
        return statusOfRequest();
    }

    long errorCode() const
    {
        const platform::Error* error = errorIn(std::get<0>(lastObject));
        return error ? error->code : 0;
    }

    std::tuple<TransportObject, TransportStatus> lastObject;
};

}

TEST_F(BadReply, AHugeJsonReplyIsParsedWhole)
{
    std::string huge = "[";
    for (int element = 0; element < 100000; ++element)
        huge += (element ? ",\"" : "\"") + std::string(20, 'x') + "\"";
    huge += "]";
    EXPECT_EQ(statusForReply(huge), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(lastObject)), nullptr);
    EXPECT_EQ(valueIn(std::get<0>(lastObject))->count(), 100000u);
}

TEST_F(BadReply, AReplyWithAByteOrderMarkOrInUtf16IsParsed)
{
    EXPECT_EQ(statusForReply("\xEF\xBB\xBF{\"ReturnStatus\":\"0\"}"), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(lastObject)), nullptr);
    EXPECT_EQ(*valueIn(std::get<0>(lastObject)), Value::dictionary({ { "ReturnStatus", Value("0") } }));

    std::string utf16;
    for (char c : std::string("{\"ReturnStatus\":\"0\"}"))
        utf16 += std::string { c, '\0' };
    EXPECT_EQ(statusForReply("\xFF\xFE" + utf16), TransportSucceeded);
    ASSERT_NE(valueIn(std::get<0>(lastObject)), nullptr);
    EXPECT_EQ(*valueIn(std::get<0>(lastObject)), Value::dictionary({ { "ReturnStatus", Value("0") } }));
}

TEST_F(BadReply, TruncatedJsonTextGivesStatusFive)
{
    EXPECT_EQ(statusForReply("{\"ReturnStatus\":\"1\""), TransportReplyNotJson);
}

TEST_F(BadReply, ABodyCutShortOfItsLengthGivesStatusTwoWithConnectionLost)
{
    EXPECT_EQ(statusForRawReply("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"Return"), TransportFailed);
    EXPECT_EQ(errorCode(), platform::http::URLErrorNetworkConnectionLost);
}

TEST_F(BadReply, TextThatIsNotUtf8GivesStatusFive)
{
    EXPECT_EQ(statusForReply("{\"FileName\":\"\xff\xfe\"}"), TransportReplyNotJson);
}

TEST_F(BadReply, DeeplyNestedJsonGivesStatusFive)
{
    EXPECT_EQ(statusForReply(std::string(100000, '[') + std::string(100000, ']')), TransportReplyNotJson);
}

TEST_F(BadReply, ATopLevelFragmentGivesStatusFive)
{
    EXPECT_EQ(statusForReply("\"ReturnStatus\""), TransportReplyNotJson);
}

TEST_F(BadReply, AReplyThatIsNotHttpGivesStatusTwoWithBadServerResponse)
{
    EXPECT_EQ(statusForRawReply("this is not HTTP\r\n\r\n"), TransportFailed);
    EXPECT_EQ(errorCode(), platform::http::URLErrorBadServerResponse);
}

TEST_F(BadReply, ARecordFieldOfAnyJsonKindReachesTheRecordUnchanged)
{
    RestServer odd(RestServer::reply(R"({"ComputerID":[1,{"a":null}],"ReturnStatus":1,"error":"text"})"));
    const auto pointAtOdd = serverAt(odd.url("/"));
    Recorder<const Outcome<messages::RegisterComputerResponseData>&, TransportStatus> callback;
    RestInterface::asyncRegisterComputer({ "7", "/k" }, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    const auto& [object, status] = callback.only().arguments;
    ASSERT_EQ(status, TransportSucceeded);
    const auto& record = std::get<messages::RegisterComputerResponseData>(object);
    EXPECT_EQ(record.computerId, Value::array({ Value::integer(1), Value::dictionary({ { "a", Value::null() } }) }));
    EXPECT_EQ(record.returnStatus, Value::integer(1));
    EXPECT_EQ(record.error, Value("text"));
}
