#include "rest/RestInterface.h"

#include "RestTestSupport.h"
#include "messages/ResponseKeys.h"
#include "messages/WireCodec.h"
#include "platform/HttpErrors.h"
#include "support/Eventually.h"
#include "support/NetworkNamespace.h"

#include <cmath>
#include <future>

using namespace resttest;
using namespace rest;
using namespace messages;
using platform::Value;

namespace {

using RegisterComputerCallback = Recorder<const Outcome<RegisterComputerResponseData>&, TransportStatus>;

class RestFacade : public RestClientTest {
protected:
    explicit RestFacade(
        RestServer::Respond respond = RestServer::reply("{\"ComputerID\":\"42\",\"ReturnStatus\":\"1\"}"))
        : RestClientTest(std::move(respond))
    {
    }

    RegisterComputerCallback::Call registerComputer()
    {
        RegisterComputerCallback callback;
        RestInterface::asyncRegisterComputer(RegisterComputerQuery { "7", "/Users/a/Korbanhold" }, callback.callback());
        EXPECT_TRUE(callback.waitFor());
        return callback.only();
    }

    // The register-computer record made of `reply` (which must come with status 0), as the encoder writes it.
    Value encodedRecordForReply(const std::string& reply)
    {
        RestServer replying(RestServer::reply(reply));
        const auto pointAtReplying = serverAt(replying.url("/"));
        const auto [object, status] = registerComputer().arguments;
        EXPECT_EQ(status, TransportSucceeded);
        const auto* record = std::get_if<RegisterComputerResponseData>(&object);
        return record ? encode(*record) : Value();
    }

    // Whether the callback of a request made while the system says it is `appKitVersion` ran on the main queue (the
    // current transport) or elsewhere (the legacy one).
    bool answeredOnMainQueueAt(const std::string& appKitVersion)
    {
        testsupport::ScopedEnvironment version("KORBANHOLD_APPKIT_VERSION", appKitVersion);
        return registerComputer().place.onMainQueue;
    }

    // What an operation's callback got, and the lines logged before it and from it on (until the main queue has run
    // everything queued after it).
    struct CallbackAndLog {
        TransportStatus status;
        std::vector<std::string> linesBefore;
        std::vector<std::string> linesAfter;
    };

    // Calls `operation` with an empty record.
    template<typename Query, typename Response>
    CallbackAndLog callbackAndLog(void (*operation)(const Query&, CompletionHandler<Response>))
    {
        auto called = std::make_shared<std::promise<std::pair<TransportStatus, std::vector<std::string>>>>();
        auto before = called->get_future();
        operation(Query {}, [this, called](const Outcome<Response>&, TransportStatus status) {
            called->set_value({ status, log.lines() });
            log.clear();
        });
        EXPECT_EQ(before.wait_for(10s), std::future_status::ready);
        MainQueueThread::drain();
        auto [status, linesBefore] = before.get();
        return { status, std::move(linesBefore), log.lines() };
    }
};

bool hasLineStartingWith(const std::vector<std::string>& lines, const std::string& prefix)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return line.starts_with(prefix); });
}

}

TEST(RestInterfaceVersion, OnlyReleaseNumbersFrom1138To1342CountAsOlderThan10_10)
{
    const std::pair<const char*, bool> cases[] = { { "1000", false }, { "1137.9", false }, { "1138", true },
        { "1138.1", true }, { "1342.99", true }, { "1343", false }, { "2487", false } };
    for (const auto& [version, older] : cases) {
        testsupport::ScopedEnvironment appKit("KORBANHOLD_APPKIT_VERSION", version);
        EXPECT_EQ(RestInterface::isLessThan10_10(), older) << version;
    }
}

TEST_F(RestFacade, AtAnAppKitVersionThatRoundsDownTo1137TheCurrentTransportIsChosen)
{
    EXPECT_TRUE(answeredOnMainQueueAt("1137.9"));
}

TEST_F(RestFacade, At1138AndAt1342TheLegacyTransportIsChosen)
{
    EXPECT_FALSE(answeredOnMainQueueAt("1138"));
    EXPECT_FALSE(answeredOnMainQueueAt("1342.5"));
}

TEST_F(RestFacade, At1343TheCurrentTransportIsChosen)
{
    EXPECT_TRUE(answeredOnMainQueueAt("1343"));
}

TEST_F(RestFacade, TheLegacyTransportsCallbackRunsOnABackgroundThreadNotTheCallers)
{
    testsupport::ScopedEnvironment version("KORBANHOLD_APPKIT_VERSION", "1200");
    const auto call = registerComputer();
    EXPECT_FALSE(call.place.onMainQueue);
    EXPECT_NE(call.place.thread, std::this_thread::get_id());
    EXPECT_EQ(std::get<1>(call.arguments), TransportSucceeded);
}

TEST_F(RestFacade, ASuccessHandsTheDecodedRecordToTheCallbackWithStatusZero)
{
    const auto [object, status] = registerComputer().arguments;
    ASSERT_EQ(status, TransportSucceeded);
    const auto& record = std::get<RegisterComputerResponseData>(object);
    EXPECT_EQ(record.computerId, Value("42"));
    EXPECT_EQ(record.returnStatus, Value("1"));
    EXPECT_EQ(record.error, std::nullopt);
}

TEST_F(RestFacade, AReplyOfAnEmptyDictionaryGivesStatusZeroAndARecordWithEveryFieldAbsent)
{
    EXPECT_EQ(encodedRecordForReply("{}"), Value::dictionary());
}

TEST_F(RestFacade, AReplyOfTheWrongShapeStillGivesStatusZeroWithWhatTheDecoderMade)
{
    EXPECT_EQ(encodedRecordForReply("[1,2,3]"), Value::dictionary());
}

TEST_F(RestFacade, AReplyThatIsNotJsonIsPassedOnAsTheParseErrorWithStatusFive)
{
    RestServer html(RestServer::reply("<html></html>", 500, "text/html"));
    const auto pointAtHtml = serverAt(html.url("/"));
    const auto [object, status] = registerComputer().arguments;
    EXPECT_EQ(status, TransportReplyNotJson);
    ASSERT_TRUE(std::holds_alternative<platform::Error>(object));
    EXPECT_EQ(std::get<platform::Error>(object).domain, platform::cocoaErrorDomain);
}

TEST_F(RestFacade, ATransportErrorIsPassedOnWithStatusTwo)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    const auto [object, status] = registerComputer().arguments;
    EXPECT_EQ(status, TransportFailed);
    ASSERT_TRUE(std::holds_alternative<platform::Error>(object));
    EXPECT_EQ(std::get<platform::Error>(object).code, platform::http::URLErrorCannotConnectToHost);
}

TEST_F(RestFacade, ARecordThatIsNotJsonCallsBackAtOnceOnTheCallersThreadWithStatusFour)
{
    RegisterComputerCallback callback;
    RestInterface::asyncRegisterComputer(RegisterComputerQuery { std::string("\xC3"), "/x" }, callback.callback());
    ASSERT_EQ(callback.count(), 1u);
    const auto call = callback.only();
    EXPECT_EQ(std::get<1>(call.arguments), TransportRequestNotJson);
    EXPECT_TRUE(std::holds_alternative<platform::Error>(std::get<0>(call.arguments)));
    EXPECT_EQ(call.place.thread, std::this_thread::get_id());
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestFacade, TheBatchReportSendsTheSyncDataArrayAndGetsOneRecordPerReplyElement)
{
    RestServer batch(RestServer::reply(R"([{"FileID":"7","ReturnStatus":"1","BaseSystemFileID":"9"}])"));
    const auto pointAtBatch = serverAt(batch.url("/"));
    SyncFilesInTableAndCloudQuery change;
    change.changeType = "Modified";
    change.fullPath = "a\\b.txt";
    Recorder<const Outcome<std::vector<SyncFilesInTableAndCloudResponseData>>&, TransportStatus> callback;
    RestInterface::asyncSyncFilesInTableAndCloud({ change }, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    ASSERT_EQ(batch.received().size(), 1u);
    EXPECT_EQ(batch.received()[0].body,
        "[\n  {\n    \"ChangeType\" : \"Modified\",\n    \"FullPath\" : \"a\\\\b.txt\"\n  }\n]");
    const auto& [object, status] = callback.only().arguments;
    ASSERT_EQ(status, TransportSucceeded);
    const auto& results = std::get<std::vector<SyncFilesInTableAndCloudResponseData>>(object);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].fileId, Value("7"));
    EXPECT_EQ(results[0].baseSystemFileID, Value("9"));
}

// The body written while the records are made one at a time is the body of the whole list, byte for byte.
TEST_F(RestFacade, TheBatchReportWrittenRecordByRecordSendsTheSameBody)
{
    std::vector<SyncFilesInTableAndCloudQuery> changes(3);
    changes[0].changeType = "Created";
    changes[0].fullPath = "a\\b/c.txt";
    changes[0].fileSize = Value::integer(12);
    changes[1].oldFullPath = Value();
    changes[2].korbanholdPath = "/Users/a";
    changes[2].fileID = Value("");
    Recorder<const Outcome<std::vector<SyncFilesInTableAndCloudResponseData>>&, TransportStatus> whole, recordByRecord;
    RestInterface::asyncSyncFilesInTableAndCloud(changes, whole.callback());
    ASSERT_TRUE(whole.waitFor());
    std::vector<std::size_t> made;
    auto body = RestInterface::syncFilesInTableAndCloudBody(changes.size(), [&](std::size_t index) {
        made.push_back(index);
        return changes[index];
    });
    RestInterface::asyncSyncFilesInTableAndCloudWithBody(std::move(body), recordByRecord.callback());
    ASSERT_TRUE(recordByRecord.waitFor());
    EXPECT_EQ(made, (std::vector<std::size_t> { 0, 1, 2 }));
    ASSERT_EQ(server.received().size(), 2u);
    EXPECT_EQ(server.received()[1].body, server.received()[0].body);
    EXPECT_EQ(std::get<1>(recordByRecord.only().arguments), TransportSucceeded);
}

// A record JSON cannot hold makes the body an error; the records after it are still made, so that one that raises
// raises as it would had the whole list been made first.
TEST(JsonListBody, AWritingErrorStillMakesTheRemainingElementsAndARaiseGoesToTheCaller)
{
    std::vector<std::size_t> made;
    const auto body = writeJsonListBody(3, [&](std::size_t index) {
        made.push_back(index);
        return index == 1 ? Value::real(std::nan("")) : Value::array();
    });
    EXPECT_EQ(made, (std::vector<std::size_t> { 0, 1, 2 }));
    EXPECT_TRUE(std::holds_alternative<platform::Error>(body));
    EXPECT_THROW(writeJsonListBody(2,
                     [&](std::size_t index) {
                         if (index == 1)
                             platform::Exception::raiseInvalidArgument("no record");
                         return Value::real(std::nan(""));
                     }),
        platform::Exception);
}

TEST_F(RestFacade, AnEmptyBatchIsSentAsAnEmptyArray)
{
    Recorder<const Outcome<std::vector<SyncFilesInTableAndCloudResponseData>>&, TransportStatus> callback;
    RestInterface::asyncSyncFilesInTableAndCloud({}, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    ASSERT_EQ(server.received().size(), 1u);
    EXPECT_EQ(server.received()[0].body, "[\n\n]");
}

TEST_F(RestFacade, TheFileExistenceCheckLogsItsTransportBeforeTheCallbackAndItsSuccessAfter)
{
    const auto logged = callbackAndLog(&RestInterface::asyncIsFileExistsInCloud);
    EXPECT_EQ(logged.status, TransportSucceeded);
    ASSERT_GE(logged.linesBefore.size(), 2u);
    EXPECT_TRUE(logged.linesBefore.front().starts_with("data in could query..."));
    EXPECT_TRUE(logged.linesBefore.back().starts_with("rest connector at cloud ....<RestConnector: 0x"));
    ASSERT_FALSE(logged.linesAfter.empty());
    EXPECT_EQ(logged.linesAfter.front(), "trace code sucesss.........");
}

TEST_F(RestFacade, TheFileExistenceCheckLogsATraceErrorAfterAFailedCallback)
{
    RestServer html(RestServer::reply("<html></html>", 200, "text/html"));
    const auto pointAtHtml = serverAt(html.url("/"));
    const auto logged = callbackAndLog(&RestInterface::asyncIsFileExistsInCloud);
    EXPECT_EQ(logged.status, TransportReplyNotJson);
    EXPECT_TRUE(logged.linesBefore.back().starts_with("rest connector at cloud ....<RestConnector: 0x"));
    ASSERT_FALSE(logged.linesAfter.empty());
    EXPECT_EQ(logged.linesAfter.front(), "trace code error...........");
}

TEST_F(RestFacade, TheFileExistenceCheckOnAnOlderSystemLogsTheLegacyTransport)
{
    testsupport::ScopedEnvironment version("KORBANHOLD_APPKIT_VERSION", "1265");
    Recorder<const Outcome<IsFileExistsInCloudResponseData>&, TransportStatus> callback;
    RestInterface::asyncIsFileExistsInCloud(IsFileExistsInCloudQuery {}, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    EXPECT_TRUE(testsupport::eventually([&] { return log.contains("trace code sucesss........."); }));
    EXPECT_TRUE(hasLineStartingWith(log.lines(), "rest connector at cloud ....<RestConnector_Old: 0x"));
}

TEST_F(RestFacade, DeletingAReceivedFileLogsSuccessAfterTheCallback)
{
    const auto logged = callbackAndLog(&RestInterface::asyncDeleteReceivedFileFromTransfer);
    EXPECT_EQ(logged.status, TransportSucceeded);
    ASSERT_FALSE(logged.linesAfter.empty());
    EXPECT_EQ(logged.linesAfter.front(), "trace code sucess..............");
}

TEST_F(RestFacade, DeletingAReceivedFileLogsAnErrorAfterAFailedCallback)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    const auto logged = callbackAndLog(&RestInterface::asyncDeleteReceivedFileFromTransfer);
    EXPECT_EQ(logged.status, TransportFailed);
    ASSERT_FALSE(logged.linesAfter.empty());
    EXPECT_EQ(logged.linesAfter.front(), "  trce code error deleteReceivedFile From Transfer ............");
}

TEST_F(RestFacade, AStreamDownloadWithATransportErrorCallsBackWithNothingNothingAndTwo)
{
    const auto pointAtNothing = serverAt(httptest::loopbackURL(httptest::closedLoopbackPort(), "/"));
    StreamRecorder callback;
    RestInterface::asyncGetTopFileUploadWithStream(GetTopFileUploadQuery { "5" }, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    const auto& [first, second, status] = callback.only().arguments;
    EXPECT_TRUE(isNothing(first));
    EXPECT_TRUE(isNothing(second));
    EXPECT_EQ(status, TransportFailed);
}

TEST_F(RestFacade, OnOlderSystemsTheTwoStreamOperationsDoNothingAtAllAndNeverCallBack)
{
    testsupport::ScopedEnvironment version("KORBANHOLD_APPKIT_VERSION", "1187");
    StreamRecorder downloaded;
    Recorder<const Outcome<UpdateFileRequestResponseData>&, TransportStatus> uploaded;
    RestInterface::asyncGetTopFileUploadWithStream(GetTopFileUploadQuery { "5" }, downloaded.callback());
    RestInterface::asyncUpdateFileRequestWithStream(
        UpdateFileRequestQuery { "a\\b", "1", "t", "x" }, uploaded.callback());
    EXPECT_FALSE(downloaded.waitFor(1, 300ms));
    MainQueueThread::drain();
    EXPECT_EQ(uploaded.count(), 0u);
    EXPECT_TRUE(server.received().empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RestFacade, TheDownloadStreamFailedPathEndsWithTheObjectReplacementCharacterAndNeverReachesItsMethod)
{
    Recorder<const Outcome<UpdateBSDownloadStreamFailedResponseData>&, TransportStatus> callback;
    RestInterface::asyncupdateBSDownloadStreamFailed(UpdateBSDownloadStreamFailedQuery {}, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    const auto call = callback.only();
    EXPECT_EQ(std::get<1>(call.arguments), TransportFailed);
    ASSERT_TRUE(std::holds_alternative<platform::Error>(std::get<0>(call.arguments)));
    EXPECT_EQ(std::get<platform::Error>(std::get<0>(call.arguments)).code, platform::http::URLErrorBadURL);
    EXPECT_TRUE(call.place.onMainQueue);
    EXPECT_TRUE(server.received().empty());
}

TEST_F(RestFacade, ABareValueDecoderThatRaisesEndsTheCompletionWithoutACallback)
{
    RestServer withStatus(RestServer::reply("{\"ReturnStatus\":\"1\"}"));
    const auto pointAtWithStatus = serverAt(withStatus.url("/"));
    Recorder<const Outcome<ReplyValue>&, TransportStatus> callback;
    RestInterface::asyncUploadFileWithStream(UploadFileWithStreamQuery {}, callback.callback());
    const std::string uncaught = "Uncaught exception in the completion handler of HTTP task";
    EXPECT_TRUE(testsupport::eventually([&] { return log.countStartingWith(uncaught) > 0; }));
    MainQueueThread::drain();
    EXPECT_EQ(withStatus.received().size(), 1u);
    EXPECT_EQ(callback.count(), 0u);
    EXPECT_EQ(log.countStartingWith(uncaught), 1u);
}

TEST_F(RestFacade, ABareValueDecoderGivenNoReturnStatusHandsOverAnAbsentResultWithStatusZero)
{
    RestServer withoutStatus(RestServer::reply("{\"error\":{}}"));
    const auto pointAtWithoutStatus = serverAt(withoutStatus.url("/"));
    Recorder<const Outcome<ReplyValue>&, TransportStatus> callback;
    RestInterface::asyncupdateSendFileToTransfer(UpdateSendFileToTransferQuery {}, callback.callback());
    ASSERT_TRUE(callback.waitFor());
    const auto& [object, status] = callback.only().arguments;
    EXPECT_EQ(status, TransportSucceeded);
    ASSERT_TRUE(std::holds_alternative<ReplyValue>(object));
    EXPECT_EQ(std::get<ReplyValue>(object), std::nullopt);
}

TEST(RestFacadeWithoutRoutes, WithNoRouteAtAllEveryTransportCallsBackAtOnceWithStatusOne)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    // In this namespace there is no default route, and the flags are read from the real routing table.
    for (const char* version : { "2487", "1200" }) {
        testsupport::ScopedEnvironment appKit("KORBANHOLD_APPKIT_VERSION", version);
        Recorder<const Outcome<LogErrorResponseData>&, TransportStatus> callback;
        RestInterface::asyncLogError(LogErrorQuery {}, callback.callback());
        ASSERT_EQ(callback.count(), 1u) << version;
        EXPECT_EQ(std::get<1>(callback.only().arguments), TransportNotReachable) << version;
        EXPECT_TRUE(std::holds_alternative<std::monostate>(std::get<0>(callback.only().arguments)));
    }
}
