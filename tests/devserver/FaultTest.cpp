// Scripted faults, observed from a real HTTP client.

#include "devserver/DevServerTest.h"
#include "devserver/Faults.h"

using namespace devservertest;
using platform::Value;

class Faults : public DevServerTest {
protected:
    static void addFault(const Value& fault)
    {
        ASSERT_EQ(postJson(server->adminUrl("faults"), fault).status, 200);
    }
    static HttpResult postEmptyBatch(std::chrono::milliseconds timeout = std::chrono::milliseconds(30000))
    {
        return send({ .url = server->methodUrl(batchMethod), .body = "[]", .timeout = timeout });
    }
    static Value lastLogged()
    {
        const auto log = get(server->adminUrl("requests")).json();
        return log.at(log.count() - 1);
    }
};

TEST_F(Faults, ErrorJsonAnswersHttp500WithAJsonBodyAndLeavesTheTableAlone)
{
    addFault(Value::dictionary({ { "kind", "error-json" } }));
    const auto reply = postBatch(*server, { { "Created", "h\\a" } });
    EXPECT_EQ(reply.code, CURLE_OK);
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(*reply.json().find("ReturnStatus"), Value("1"));
    EXPECT_TRUE(fileTable(*server, "7").empty());
    EXPECT_EQ(*lastLogged().find("fault"), Value("error-json"));
}

TEST_F(Faults, ErrorHtmlAnswersHttp500WithAnHtmlBody)
{
    addFault(Value::dictionary({ { "kind", "error-html" } }));
    const auto reply = postEmptyBatch();
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.contentType, "text/html");
    EXPECT_FALSE(reply.isJson());
    EXPECT_NE(reply.body.find("<html>"), std::string::npos);
}

TEST_F(Faults, UnavailableJsonAnswersHttp503WithAJsonBodyAndLeavesTheTableAlone)
{
    addFault(Value::dictionary({ { "kind", "unavailable-json" } }));
    const auto reply = postBatch(*server, { { "Created", "h\\a" } });
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(*reply.json().find("ReturnStatus"), Value("1"));
    EXPECT_TRUE(fileTable(*server, "7").empty());
    EXPECT_EQ(*lastLogged().find("fault"), Value("unavailable-json"));
}

TEST_F(Faults, NotJsonAnswersHttp200WithABodyThatIsNotJson)
{
    addFault(Value::dictionary({ { "kind", "not-json" } }));
    const auto reply = postEmptyBatch();
    EXPECT_EQ(reply.status, 200);
    EXPECT_FALSE(reply.body.empty());
    EXPECT_FALSE(reply.isJson());
}

TEST_F(Faults, DelayAnswersNormallyAfterTheDelay)
{
    addFault(Value::dictionary({ { "kind", "delay" }, { "ms", Value::integer(400) } }));
    const auto reply = postBatch(*server, { { "Created", "h\\a" } });
    EXPECT_GE(reply.elapsed.count(), 400);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(returnStatuses(reply.json()), (std::vector<std::string> { "0" }));
    EXPECT_EQ(fileTable(*server, "7").size(), 1u);
    EXPECT_EQ(*lastLogged().find("fault"), Value("delay:400"));
}

TEST_F(Faults, DropClosesTheConnectionWithoutAReply)
{
    addFault(Value::dictionary({ { "kind", "drop" } }));
    const auto reply = postEmptyBatch();
    EXPECT_EQ(reply.code, CURLE_GOT_NOTHING);
    EXPECT_TRUE(reply.body.empty());
    const auto logged = lastLogged();
    EXPECT_EQ(*logged.find("http_status"), Value::integer(0));
    EXPECT_EQ(*logged.find("fault"), Value("drop"));
}

TEST_F(Faults, WithholdKeepsTheReplyUntilTheClientGivesUp)
{
    addFault(Value::dictionary({ { "kind", "withhold" } }));
    const auto reply = postEmptyBatch(std::chrono::milliseconds(700));
    EXPECT_EQ(reply.code, CURLE_OPERATION_TIMEDOUT);
    // The request is logged without a reply, and the server answers the next one.
    EXPECT_EQ(postEmptyBatch().status, 200);
    const auto log = get(server->adminUrl("requests")).json();
    ASSERT_EQ(log.count(), 2u);
    EXPECT_EQ(*log.at(0).find("fault"), Value("withhold"));
    EXPECT_EQ(*log.at(0).find("http_status"), Value::integer(0));
}

TEST_F(Faults, AFaultAppliesToExactlyTheNextCountRequests)
{
    addFault(Value::dictionary({ { "kind", "error-json" }, { "count", Value::integer(2) } }));
    EXPECT_EQ(postEmptyBatch().status, 500);
    EXPECT_EQ(postEmptyBatch().status, 500);
    EXPECT_EQ(postEmptyBatch().status, 200);
}

TEST_F(Faults, AFaultForOneMethodPathLeavesTheOthersAlone)
{
    addFault(Value::dictionary({ { "kind", "error-json" }, { "path", "MAC/ErrorLog.svc/LogError" } }));
    EXPECT_EQ(postEmptyBatch().status, 200);
    EXPECT_EQ(get(server->adminUrl("faults")).json().count(), 1u);
}

TEST_F(Faults, FaultsApplyInTheOrderTheyWereAdded)
{
    addFault(Value::array({ Value::dictionary({ { "kind", "not-json" }, { "path", std::string(batchMethod) } }),
        Value::dictionary({ { "kind", "error-html" } }) }));
    EXPECT_EQ(postEmptyBatch().status, 200);
    EXPECT_EQ(postEmptyBatch().status, 500);
    EXPECT_EQ(postEmptyBatch().status, 200);
}

TEST_F(Faults, TheAdminInterfaceIsNeverFaulted)
{
    addFault(Value::dictionary({ { "kind", "error-html" } }));
    EXPECT_EQ(get(server->adminUrl("files?computer=7")).status, 200);
    EXPECT_EQ(get(server->adminUrl("faults")).json().count(), 1u);
}

TEST_F(Faults, AWrongFaultIsRefusedWithTheReason)
{
    const auto reply = postJson(server->adminUrl("faults"), Value::dictionary({ { "kind", "explode" } }));
    EXPECT_EQ(reply.status, 400);
    EXPECT_NE(reply.body.find("unknown fault kind"), std::string::npos);
    EXPECT_EQ(get(server->adminUrl("faults")).json(), Value::array());
}

TEST_F(Faults, DeletingTheFaultsClearsTheScript)
{
    addFault(Value::dictionary({ { "kind", "drop" }, { "count", Value::integer(5) } }));
    EXPECT_EQ(send({ .method = "DELETE", .url = server->adminUrl("faults"), .headers = {} }).json(), Value::array());
    EXPECT_EQ(postEmptyBatch().status, 200);
}

TEST(FaultsOnTheCommandLine, AreAppliedLikeThoseOfTheAdminInterface)
{
    DevServerProcess server({ "--db", ":memory:", "--fault", "kind=not-json,path=" + std::string(batchMethod) + ",count=2",
        "--fault", "kind=error-html" });
    const auto url = server.methodUrl(batchMethod);
    EXPECT_FALSE(post(url, "[]").isJson());
    EXPECT_FALSE(post(url, "[]").isJson());
    EXPECT_EQ(post(url, "[]").status, 500);
    EXPECT_EQ(post(url, "[]").status, 200);
}

TEST(FaultsOnTheCommandLine, AWrongFaultStopsTheServerFromStarting)
{
    const auto result = runServerProgram({ "--port", "0", "--db", ":memory:", "--fault", "kind=delay" });
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.standardError.find("\"ms\" belongs to a fault of kind delay"), std::string::npos)
        << result.standardError;
}

TEST(FaultText, ReadsEveryField)
{
    const auto fault = devserver::faultFromText("kind=delay,ms=1500,path=MAC/ErrorLog.svc/LogError,count=3");
    EXPECT_EQ(fault.kind, devserver::FaultKind::Delay);
    EXPECT_EQ(fault.delay, std::chrono::milliseconds(1500));
    EXPECT_EQ(fault.path, "MAC/ErrorLog.svc/LogError");
    EXPECT_EQ(fault.count, 3);
}

TEST(FaultText, DefaultsToOneRequestOfEveryMethod)
{
    const auto fault = devserver::faultFromText("kind=drop");
    EXPECT_EQ(fault.path, "*");
    EXPECT_EQ(fault.count, 1);
}

TEST(FaultText, RefusesWhatItCannotRead)
{
    for (const char* text : { "", "drop", "kind=drop,count=0", "kind=drop,count=two", "kind=drop,ms=5",
             "kind=delay,ms=-1", "kind=drop,colour=red", "kind=drop,path=" }) {
        EXPECT_THROW(devserver::faultFromText(text), devserver::FaultError) << text;
    }
}
