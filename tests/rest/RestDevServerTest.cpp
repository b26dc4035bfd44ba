// The façade against the real server program, korbanhold-devserver: what it stores and answers proves that the
// requests carry what the server methods read.

#include "rest/RestInterface.h"

#include "RestTestSupport.h"
#include "support/DevServerProcess.h"

using namespace resttest;
using namespace rest;
using namespace messages;
using platform::Value;

namespace {

class RestAgainstDevServer : public RestClientTest {
protected:
    // Calls `operation` with `query` and answers the record it got with status 0 (a failed test otherwise).
    template<typename Query, typename Response>
    Response call(void (*operation)(const Query&, CompletionHandler<Response>), const Query& query)
    {
        Recorder<const Outcome<Response>&, TransportStatus> callback;
        operation(query, callback.callback());
        EXPECT_TRUE(callback.waitFor());
        const auto [object, status] = callback.only().arguments;
        EXPECT_EQ(status, TransportSucceeded);
        const auto* record = std::get_if<Response>(&object);
        return record ? *record : Response {};
    }

    // A new user with a registered computer; answers the computer's id.
    std::string registeredComputer()
    {
        const auto user = call(&RestInterface::asyncUserRegistration,
            UserRegistrationQuery { "someone@example.test", "secret", "Some", "One", "some" });
        EXPECT_EQ(user.returnValue, Value("1"));
        const auto computer = call(&RestInterface::asyncRegisterComputer,
            RegisterComputerQuery { user.userId ? user.userId->string() : "", "/Users/some/Korbanhold" });
        EXPECT_EQ(computer.returnStatus, Value("0"));
        return computer.computerId && computer.computerId->isString() ? computer.computerId->string() : "";
    }

    testsupport::DevServerProcess devserver;
    testsupport::ScopedEnvironment pointAtDevserver = serverAt(devserver.url("/"));
};

}

TEST_F(RestAgainstDevServer, ABatchReportOfACreatedFileGetsTheServersFileIdForIt)
{
    const std::string computer = registeredComputer();
    SyncFilesInTableAndCloudQuery created;
    created.changeType = "Created";
    created.fullPath = "Documents\\report.txt";
    created.isFile = "1";
    created.fileSize = "4";
    created.computerId = computer;
    created.baseSystemFileID = "1234";
    const auto results
        = call(&RestInterface::asyncSyncFilesInTableAndCloud, std::vector<SyncFilesInTableAndCloudQuery> { created });
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].returnStatus, Value("0"));
    EXPECT_EQ(results[0].baseSystemFileID, Value("1234"));
    ASSERT_TRUE(results[0].fileId && results[0].fileId->isString());
    EXPECT_FALSE(results[0].fileId->string().empty());
}

TEST_F(RestAgainstDevServer, AnErrorReportIsAccepted)
{
    const auto reply = call(&RestInterface::asyncLogError,
        LogErrorQuery { "SyncFilesXpcService", "SyncFile", "something failed", registeredComputer(), "1" });
    EXPECT_EQ(reply.returnStatus, Value("0"));
}

TEST_F(RestAgainstDevServer, AStreamUploadDeliversTheFileWithItsHeadersAndTheServerCountsItsBytes)
{
    testsupport::TempDir files;
    const auto local = files / "Transit/video.bin";
    testsupport::writeFile(local, std::string(5000, 'v'));
    const auto uploaded = call(&RestInterface::asyncUpdateFileRequestWithStream,
        UpdateFileRequestQuery { serverForm(local), "77", "Transit\\video.bin", std::nullopt });
    EXPECT_EQ(uploaded.ReturnStatus, Value("0"));
    EXPECT_FALSE(std::filesystem::exists(home / "video.bin")) << "the staging copy was not deleted";

    CheckFileExistsInDownloadsQuery check;
    check.filePath = serverForm(local);
    const auto received = call(&RestInterface::asyncCheckFileExistsInDownloads, check);
    EXPECT_EQ(received.returnStatus, Value("0"));
    EXPECT_EQ(received.byteStartPos, Value("5000"));
}
