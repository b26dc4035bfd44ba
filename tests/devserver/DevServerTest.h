#pragma once

// The fixture of the tests that talk to one server process: the process lives as long as the test suite, and
// every test starts from an empty server (the admin interface's reset).

#include "devserver/HttpClient.h"
#include "devserver/ServerProcess.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace devservertest {

inline constexpr std::string_view batchMethod = "SyncFileChanges.svc/SyncFilesInTableAndCloud";

class DevServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server = std::make_unique<ServerProcess>(); }
    static void TearDownTestSuite() { server.reset(); }
    void SetUp() override { ASSERT_EQ(post(server->adminUrl("reset"), "").status, 200); }

    static inline std::unique_ptr<ServerProcess> server;
};

// One change of a batch report, with the keys the client sends.
struct Change {
    std::string type {};
    std::string fullPath {};
    std::string oldFullPath {};
    std::string computerId = "7";
    std::string isFile = "1";
    std::string baseSystemFileId = "100";
    std::string fileId {};

    platform::Value toValue() const;
};

platform::Value batch(const std::vector<Change>& changes);
HttpResult postBatch(const ServerProcess& server, const std::vector<Change>& changes);

// The file table of a computer on the server: full path to file id.
std::map<std::string, long long> fileTable(const ServerProcess& server, std::string_view computerId);

// The "ReturnStatus" texts of a batch reply, in order.
std::vector<std::string> returnStatuses(const platform::Value& reply);

}
