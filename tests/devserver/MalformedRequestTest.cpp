// Requests the server cannot understand get a clear error reply and a row in the request log; the server keeps
// running.

#include "devserver/DevServerTest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace devservertest;
using platform::Value;

class MalformedRequests : public DevServerTest {
protected:
    static Value lastLogged()
    {
        const auto log = get(server->adminUrl("requests")).json();
        return log.at(log.count() - 1);
    }

    static void expectRefusedAndLogged(const HttpResult& reply, long status, std::string_view reason)
    {
        EXPECT_EQ(reply.status, status);
        const auto body = reply.json();
        ASSERT_TRUE(body.isDictionary()) << reply.body;
        EXPECT_EQ(*body.find("ReturnStatus"), Value("1"));
        EXPECT_NE(body.find("error")->find("Message")->string().find(reason), std::string::npos) << reply.body;
        const auto logged = lastLogged();
        EXPECT_EQ(*logged.find("http_status"), Value::integer(status));
        EXPECT_EQ(*logged.find("reply_body"), Value(reply.body));
        // The server is still there.
        EXPECT_EQ(postBatch(*server, {}).status, 200);
    }
};

TEST_F(MalformedRequests, ABodyThatIsNotJsonGetsHttp400)
{
    expectRefusedAndLogged(post(server->methodUrl(batchMethod), "{\"ChangeType\": "), 400, "not JSON");
}

TEST_F(MalformedRequests, AnEmptyBodyGetsHttp400)
{
    expectRefusedAndLogged(post(server->methodUrl(batchMethod), ""), 400, "not JSON");
}

TEST_F(MalformedRequests, AnObjectWhereTheBatchsArrayBelongsGetsHttp400)
{
    // The client sends the array under "syncData" itself, not the object around it.
    expectRefusedAndLogged(
        postJson(server->methodUrl(batchMethod), Value::dictionary({ { "syncData", batch({ { "Created", "h\\a" } }) } })),
        400, "JSON array");
}

TEST_F(MalformedRequests, AnArrayWhereAChangeObjectBelongsGetsHttp400AndNothingIsApplied)
{
    auto changes = batch({ { "Created", "h\\a" } });
    changes.append(Value::array({ "Created" }));
    expectRefusedAndLogged(postJson(server->methodUrl(batchMethod), changes), 400, "record 1 is not a JSON object");
    EXPECT_TRUE(fileTable(*server, "7").empty());
}

TEST_F(MalformedRequests, AnUnknownKeyGetsHttp400NamingItAndNothingIsApplied)
{
    auto change = Change { "Created", "h\\b" }.toValue();
    change.setObject(Value("x"), "Colour");
    expectRefusedAndLogged(postJson(server->methodUrl(batchMethod), Value::array({ Change { "Created", "h\\a" }.toValue(), change })),
        400, "unknown key \"Colour\"");
    EXPECT_TRUE(fileTable(*server, "7").empty());
}

TEST_F(MalformedRequests, AValueThatIsNotTextWhereTheRecordTakesTextGetsHttp400)
{
    auto change = Change { "Created", "h\\a" }.toValue();
    change.setObject(Value::integer(12), "FullPath");
    expectRefusedAndLogged(postJson(server->methodUrl(batchMethod), Value::array({ change })), 400, "\"FullPath\" of record 0 is not text");
}

TEST_F(MalformedRequests, ANumberTheClientCopiedAsItStandsIsReadAsItsDecimalText)
{
    auto change = Change { "Created", "h\\a" }.toValue();
    change.setObject(Value::integer(12), "FileSize");
    const auto reply = postJson(server->methodUrl(batchMethod), Value::array({ change }));
    EXPECT_EQ(returnStatuses(reply.json()), (std::vector<std::string> { "0" }));
}

TEST_F(MalformedRequests, ANullOldPathIsAcceptedAsTheClientSendsIt)
{
    auto change = Change { "Created", "h\\a" }.toValue();
    change.setObject(Value::null(), "OldFullPath");
    const auto reply = postJson(server->methodUrl(batchMethod), Value::array({ change }));
    EXPECT_EQ(returnStatuses(reply.json()), (std::vector<std::string> { "0" }));
}

TEST(OversizedRequests, ABodyOverTheLimitGetsHttp413AndARowInTheLog)
{
    DevServerProcess server({ "--db", ":memory:", "--max-body-bytes", "1000" });
    const auto reply = post(server.methodUrl(batchMethod), "[" + std::string(2000, ' ') + "]");
    EXPECT_EQ(reply.status, 413);
    EXPECT_NE(reply.json().find("error")->find("Message")->string().find("larger than the limit of 1000 bytes"),
        std::string::npos);
    const auto log = get(server.adminUrl("requests")).json();
    ASSERT_EQ(log.count(), 1u);
    EXPECT_EQ(*log.at(0).find("method_path"), Value(batchMethod));
    EXPECT_EQ(*log.at(0).find("http_status"), Value::integer(413));
    EXPECT_EQ(post(server.methodUrl(batchMethod), "[]").status, 200);
}

TEST_F(MalformedRequests, AnUnknownPathGetsHttp404WithABodyThatIsNotJson)
{
    const auto reply = post(server->methodUrl("Registration.svc/NoSuchMethod"), "{}");
    EXPECT_EQ(reply.status, 404);
    EXPECT_FALSE(reply.body.empty());
    EXPECT_FALSE(reply.isJson());
    EXPECT_EQ(*lastLogged().find("method_path"), Value("Registration.svc/NoSuchMethod"));
}

TEST_F(MalformedRequests, APathOutsideTheServiceGetsHttp404)
{
    const auto reply = post(server->url("/elsewhere"), "{}");
    EXPECT_EQ(reply.status, 404);
    EXPECT_FALSE(reply.isJson());
    EXPECT_EQ(*lastLogged().find("method_path"), Value("/elsewhere"));
}

TEST_F(MalformedRequests, AMethodPathThatEndsInTheObjectReplacementCharacterIsNotAMethod)
{
    // The client's path of the failed-download notice ends in U+FFFC; percent-encoded, it reaches no method.
    const auto reply = post(server->methodUrl("Downloads.svc/UpdateBSDownloadStreamFailed%EF%BF%BC"), "{}");
    EXPECT_EQ(reply.status, 404);
    EXPECT_FALSE(reply.isJson());
    EXPECT_EQ(*lastLogged().find("method_path"), Value("Downloads.svc/UpdateBSDownloadStreamFailed\xEF\xBF\xBC"));
}

TEST_F(MalformedRequests, AGetOfAMethodPathGetsHttp404)
{
    const auto reply = get(server->methodUrl(batchMethod));
    EXPECT_EQ(reply.status, 404);
    EXPECT_FALSE(reply.isJson());
}

TEST_F(MalformedRequests, AnotherHttpMethodGetsAnErrorAndARowInTheLog)
{
    const auto reply = send({ .method = "PUT", .url = server->methodUrl(batchMethod), .body = "[]" });
    EXPECT_GE(reply.status, 400);
    EXPECT_EQ(*lastLogged().find("http_status"), Value::integer(reply.status));
}

TEST_F(MalformedRequests, GarbageInsteadOfHttpLeavesTheServerRunning)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(server->port()));
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    ASSERT_EQ(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string garbage = "\x01\x02 not http at all\r\n\r\n";
    ASSERT_EQ(write(socket, garbage.data(), garbage.size()), static_cast<ssize_t>(garbage.size()));
    char buffer[512];
    while (read(socket, buffer, sizeof buffer) > 0) { }
    close(socket);
    EXPECT_EQ(postBatch(*server, {}).status, 200);
}
