// Every one of the service's 39 methods is answered, each with the keys that the client's decoder of that method
// reads.

#include "devserver/DevServerTest.h"
#include "devserver/MethodTable.h"

#include <set>

using namespace devservertest;
using platform::Value;

namespace {

template<typename Record>
std::set<std::string> keysOf()
{
    std::set<std::string> keys;
    std::apply([&](const auto&... entry) { (keys.insert(std::string(entry.key)), ...); },
        messages::KeyList<Record>::keys);
    return keys;
}

std::set<std::string> keysIn(const Value& object)
{
    const auto keys = object.keys();
    return { keys.begin(), keys.end() };
}

// The body the client sends for an empty request record, and the keys its decoder reads from the reply.
template<typename Operation>
void expectAnsweredWithItsKeys(const DevServerProcess& server, const Operation& operation)
{
    using Query = typename Operation::QueryRecord;
    using Response = typename Operation::ResponseRecord;
    // The two decoders that give a bare value read the keys of the plainest reply record.
    using Keyed = std::conditional_t<std::is_same_v<Response, messages::ReplyValue>, messages::BareStatusReply, Response>;
    const auto url = server.methodUrl(devserver::methodPathOf(operation.path));
    SCOPED_TRACE(url);
    const Value encoded = operation.encoder(Query {});

    if constexpr (std::is_same_v<Response, messages::StreamedReply>) {
        const auto reply = postJson(url, encoded);
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.contentType, "application/octet-stream");
    } else if constexpr (messages::IsRecordList<Response>::value) {
        // The batch report sends the "syncData" array of what its encoder gives.
        const auto reply = postJson(url, *encoded.find("syncData")).json();
        EXPECT_TRUE(reply.isArray());
        const auto one = postBatch(server, { { "Created", "h\\a" } }).json();
        ASSERT_EQ(one.count(), 1u);
        EXPECT_EQ(keysIn(one.at(0)), keysOf<typename Response::value_type>());
    } else if (operation.transport == messages::Transport::StreamUpload) {
        const auto reply = send({ .url = url, .body = "bytes", .headers = { "Content-Type: application/octet-stream" } });
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(keysIn(reply.json()), keysOf<Keyed>());
    } else {
        const auto reply = postJson(url, encoded);
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(keysIn(reply.json()), keysOf<Keyed>());
    }
}

}

class EveryMethod : public DevServerTest { };

TEST_F(EveryMethod, IsAnsweredWithTheKeysOfItsReplyRecord)
{
    int methods = 0;
    messages::forEachOperation([&](const auto& operation) {
        expectAnsweredWithItsKeys(*server, operation);
        ++methods;
    });
    EXPECT_EQ(methods, 39);
}

TEST_F(EveryMethod, HasAPathOfItsOwnAndOnlyThose39PathsAreMethods)
{
    std::set<std::string> clientPaths;
    messages::forEachOperation(
        [&](const auto& operation) { clientPaths.insert(std::string(devserver::methodPathOf(operation.path))); });
    const auto served = devserver::methodPaths();
    EXPECT_EQ(served.size(), 39u);
    EXPECT_EQ(std::set<std::string>(served.begin(), served.end()), clientPaths);
}

TEST_F(EveryMethod, SaysSuccessWithReturnStatus0)
{
    messages::LogErrorQuery query;
    query.errorClass = "X";
    const auto reply = call(*server, messages::operations::asyncLogError, query);
    EXPECT_EQ(*reply.json().find("ReturnStatus"), Value("0"));
}

TEST_F(EveryMethod, RefusesAnArrayWhereItsObjectBelongs)
{
    const auto reply = postJson(server->methodUrl("MAC/ErrorLog.svc/LogError"), Value::array({ Value::dictionary() }));
    EXPECT_EQ(reply.status, 400);
    EXPECT_NE(reply.body.find("the body is not a JSON object"), std::string::npos) << reply.body;
}

TEST_F(EveryMethod, RefusesAKeyOfAnotherRecord)
{
    // "FullPathFromFileTable" belongs to other records; this one spells it with a lower-case "from".
    const auto reply = postJson(server->methodUrl("MAC/SharedFiles.svc/CheckFileExistsInTransfers"),
        Value::dictionary({ { "FullPathFromFileTable", "h\\a" } }));
    EXPECT_EQ(reply.status, 400);
    EXPECT_NE(reply.body.find("unknown key \\\"FullPathFromFileTable\\\""), std::string::npos) << reply.body;
}
