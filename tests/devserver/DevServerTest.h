#pragma once

// The fixture of the tests that talk to one server process: the process lives as long as the test suite, and
// every test starts from an empty server (the admin interface's reset).

#include "support/DevServerProcess.h"
#include "support/HttpClient.h"
#include "devserver/MethodTable.h"
#include "messages/Operations.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace devservertest {

using namespace testsupport;

inline constexpr std::string_view batchMethod = "SyncFileChanges.svc/SyncFilesInTableAndCloud";

class DevServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server = std::make_unique<DevServerProcess>(); }
    static void TearDownTestSuite() { server.reset(); }
    void SetUp() override { ASSERT_EQ(post(server->adminUrl("reset"), "").status, 200); }

    static inline std::unique_ptr<DevServerProcess> server;
};

// Posts a request record to its operation's method, encoded as the client encodes it (not for the batch report,
// whose body is only a part of what its encoder gives).
template<typename Operation>
HttpResult call(const DevServerProcess& server, const Operation& operation, const typename Operation::QueryRecord& query)
{
    return postJson(server.methodUrl(devserver::methodPathOf(operation.path)), operation.encoder(query));
}

// Posts a request record and decodes the reply with the client's decoder of that method.
template<typename Operation>
typename Operation::ResponseRecord ask(
    const DevServerProcess& server, const Operation& operation, const typename Operation::QueryRecord& query)
{
    const auto reply = call(server, operation, query);
    EXPECT_EQ(reply.status, 200) << reply.body;
    return operation.decoder(reply.json());
}

// The text of a reply's property, or "(absent)".
std::string textOf(const messages::ReplyValue& value);

// One change of a batch report.
struct Change {
    std::string type {};
    std::string fullPath {};
    std::string oldFullPath {};
    std::string computerId = "7";
    std::string isFile = "1";
    std::string baseSystemFileId = "100";
    std::string fileId {};
    std::string fileSize = "1";

    messages::SyncFilesInTableAndCloudQuery toRecord() const;
    // As the client encodes it.
    platform::Value toValue() const;
};

// The body of a batch report as the client sends it: the "syncData" array of the encoded records.
platform::Value batch(const std::vector<Change>& changes);
HttpResult postBatch(const DevServerProcess& server, const std::vector<Change>& changes);

// The file table of a computer on the server: full path to file id.
std::map<std::string, long long> fileTable(const DevServerProcess& server, std::string_view computerId);

// The "ReturnStatus" texts of a batch reply, in order.
std::vector<std::string> returnStatuses(const platform::Value& reply);

}
