#include "rest/RestInterface.h"

#include "RestTestSupport.h"
#include "messages/DataParser.h"
#include "messages/QueryKeys.h"
#include "messages/QueryParser.h"
#include "messages/ResponseKeys.h"
#include "messages/SharedTransferKeys.h"
#include "messages/WireCodec.h"
#include "platform/HttpErrors.h"
#include "platform/Json.h"

#include <filesystem>

using namespace resttest;
using namespace rest;
using namespace messages;
using platform::Value;

namespace {

// How an operation's request travels.
enum class Carried {
    // The encoded dictionary, as JSON.
    Json,
    // The array the encoder puts under "syncData", as JSON.
    SyncDataArray,
    // The local file's bytes, with the request's fields in headers.
    FileStream,
};

// One operation of the façade as the server interface defines it, written out here apart from the table of server
// methods the façade is built from: the façade function, its path, the encoder and decoder it must use, how the
// request travels, and the log line (with the encoded dictionary as its argument) it writes, if any.
template<typename Query, typename Response>
struct Row {
    const char* selector;
    void (*operation)(const Query&, CompletionHandler<Response>);
    std::string path;
    Value (*encoder)(const std::optional<Query>&);
    Response (*decoder)(const ReplyValue&);
    Carried carried = Carried::Json;
    const char* logLine = nullptr;
};

template<typename Query, typename Response>
Row(const char*, void (*)(const Query&, CompletionHandler<Response>), std::string,
    Value (*)(const std::optional<Query>&), Response (*)(const ReplyValue&), Carried = Carried::Json,
    const char* = nullptr) -> Row<Query, Response>;

// The one operation whose callback takes three arguments and whose reply is not decoded.
struct StreamDownloadRow {
    const char* selector;
    void (*operation)(const GetTopFileUploadQuery&, StreamFinished);
    std::string path;
    Value (*encoder)(const std::optional<GetTopFileUploadQuery>&);
};

const auto operationRows = std::tuple {
    Row { "asyncUserRegistration:withCompletionHandler:", &RestInterface::asyncUserRegistration,
        "Registration.svc/VerifyAndRegisterUserFromTool", &QueryParser::parseUserRegistrationQuery,
        &DataParser::parseUserRegistrationReponseData },
    Row { "asyncRegisterComputer:withCompletionHandler:", &RestInterface::asyncRegisterComputer,
        "Registration.svc/RegisterComputer", &QueryParser::parseRegisterComputerQuery,
        &DataParser::parseRegisterComputerResponseData },
    Row { "asyncSendActivationMail:withCompletionHandler:", &RestInterface::asyncSendActivationMail,
        "Registration.svc/SendActivationMail", &QueryParser::parseSendActivationMailQuery,
        &DataParser::parseSendActivationMailResponseData },
    Row { "asyncOneTimeSyncOwnersSharedFolders:withCompletionHandler:",
        &RestInterface::asyncOneTimeSyncOwnersSharedFolders, "Registration.svc/OneTimeSyncOwnersSharedFolders",
        &QueryParser::parseOneTimeSyncOwnersSharedFoldersQuery,
        &DataParser::parseOneTimeSyncOwnersSharedFoldersResponseData },
    Row { "asyncTransferFilesFromCloudToBaseSystem:withCompletionHandler:",
        &RestInterface::asyncTransferFilesFromCloudToBaseSystem, "Registration.svc/TransferFilesFromCloudToBaseSystem",
        &QueryParser::parseTransferFilesFromColudToBaseSystemQuery,
        &DataParser::parseTransferFilesFromCloudToBaseSystemResponseData },
    Row { "asyncGetTopFileUpload:withCompletionHandler:", &RestInterface::asyncGetTopFileUpload,
        "Uploads.svc/GetTopFileUpload", &QueryParser::parseGetTopFileUploadQuery,
        &DataParser::parseGetTopFileUploadResponseData },
    Row {
        "asyncCheckUserMailActivationStatus:withCompletionHandler:", &RestInterface::asyncCheckUserMailActivationStatus,
        "Registration.svc/CheckUserMailActivationStatus", &QueryParser::parseCheckUserMailActivationStatusQuery,
        &DataParser::parseCheckUserMailActivationStatusResponseData },
    Row { "asyncUpdateFileUpload:withCompletionHandler:", &RestInterface::asyncUpdateFileUpload,
        "Uploads.svc/UpdateFileUpload", &QueryParser::parseUpdateFileUploadQuery,
        &DataParser::parseUpdateFileUploadResponseData },
    Row { "asyncGetTopFileRequest:withCompletionHandler:", &RestInterface::asyncGetTopFileRequest,
        "Downloads.svc/GetTopFileRequest", &QueryParser::parsegetTopFileRequestQuery,
        &DataParser::parseGetTopFileRequestResponseData },
    Row { "asyncUpdateFileRequest:withCompletionHandler:", &RestInterface::asyncUpdateFileRequest,
        "Downloads.svc/UpdateFileRequest", &QueryParser::parseUpdateFileRequestQuery,
        &DataParser::parseUpdateFileRequestResponseData },
    Row { "asyncSyncFilesInTableAndCloud:withCompletionHandler:", &RestInterface::asyncSyncFilesInTableAndCloud,
        "SyncFileChanges.svc/SyncFilesInTableAndCloud", &QueryParser::parseSyncFilesInTableAndCloudQuery,
        &DataParser::parseSyncFilesInTableAndCloudResponseData, Carried::SyncDataArray },
    Row { "asyncUpdateComputerStatus:withCompletionHandler:", &RestInterface::asyncUpdateComputerStatus,
        "UpdateSystemTime.svc/UpdateComputerStatus", &QueryParser::parseUpdateComputerStatusQuery,
        &DataParser::parseUpdateComputerStatusResponseData },
    Row { "asyncOneTimeSyncFiles:withCompletionHandler:", &RestInterface::asyncOneTimeSyncFiles,
        "Registration.svc/OneTimeSyncFiles", &QueryParser::parseOneTimeSyncFilesQuery,
        &DataParser::parseOneTimeSyncFilesResponseData },
    Row { "asyncSendPasswordToMailId:withCompiletionHandler:", &RestInterface::asyncSendPasswordToMailId,
        "Registration.svc/SendPasswordToMailID", &QueryParser::parseSendPasswordToMailIdQuery,
        &DataParser::parseSendPasswordToMailIdResponseData, Carried::Json, "%@" },
    Row { "asyncUpdateFileRequestWithStream:withCompletionHandler:", &RestInterface::asyncUpdateFileRequestWithStream,
        "Downloads.svc/UpdateFileRequestWithStream", &QueryParser::parseUpdateFileRequestQuery,
        &DataParser::parseUpdateFileRequestResponseData, Carried::FileStream, "strem dictionary %@" },
    Row { "asyncLogError:withCompiletionHandler:", &RestInterface::asyncLogError, "MAC/ErrorLog.svc/LogError",
        &QueryParser::parseLogErrorQuery, &DataParser::parseLogErrorResponseData, Carried::Json, "%@" },
    Row { "asyncGetSharedFilesTransferData:withCompletionHandler:", &RestInterface::asyncGetSharedFilesTransferData,
        "MAC/SharedFiles.svc/GetSharedFilesTransferData", &QueryParser::parseGetSharedFilesTransferDataQuery,
        &DataParser::parseGetSharedFilesTransferDataResponseData, Carried::Json, " %@" },
    Row { "asyncUpdateFileExist:withCompletionHandler:", &RestInterface::asyncUpdateFileExist,
        "MAC/SharedFiles.svc/UpdateFileExists", &QueryParser::parseUpdateFileExistDataQuery,
        &DataParser::parseUpdateFileExistResponseData, Carried::Json, "data from updatefileexist.%@" },
    Row { "asyncUpdateFileSendReceived:withCompletionHandler:", &RestInterface::asyncUpdateFileSendReceived,
        "MAC/SharedFiles.svc/UpdateFileSendReceived", &QueryParser::parseUpdateFileSendReceivedQuery,
        &DataParser::parseUpdateFileSendReceivedResponseData, Carried::Json, "data from updatefilesendreceived.%@" },
    Row { "asyncUploadFileWithStream:withCompletionHandler:", &RestInterface::asyncUploadFileWithStream,
        "MAC/SharedFiles.svc/UploadFileWithStream", &QueryParser::parseUploadWithStreamQuery,
        &DataParser::parseUploadFileWithStreamResponseData, Carried::Json, "data from uploadfilewithstream.%@" },
    Row { "asyncupdateSendFileToTransfer:withcompletionHandler:", &RestInterface::asyncupdateSendFileToTransfer,
        "MAC/SharedFiles.svc/UpdateSendFileToTransfer", &QueryParser::parseUpdateSendFileToTransferQuery,
        &DataParser::parseUpdateSendFileToTransferResponseData, Carried::Json,
        "data from updatesendfiletotransfer.%@" },
    Row { "asyncIsFileExistsInCloud:withCompiletionHandler:", &RestInterface::asyncIsFileExistsInCloud,
        "MAC/SharedFiles.svc/IsFileExistsInCloud", &QueryParser::parseIsFileExistsInCloudQuery,
        &DataParser::parseIsFileExistsInCloudResponseData, Carried::Json, "data in could query...%@" },
    Row { "asyncUpdateFileReceived:withCompiletionHandler:", &RestInterface::asyncUpdateFileReceived,
        "MAC/SharedFiles.svc/UpdateFileReceived", &QueryParser::parseUpdateFileReceivedQuery,
        &DataParser::parseUpdateFileReceivedResponseData },
    Row { "asyncDeleteReceivedFileFromTransfer:withCompiletionHandler:",
        &RestInterface::asyncDeleteReceivedFileFromTransfer, "MAC/SharedFiles.svc/DeleteReceivedFileFromTransfer",
        &QueryParser::parseDeleteReceivedFileFromTransferQuery,
        &DataParser::parseDeleteReceivedFileFromTransferResponseData, Carried::Json,
        "data for delete Received File from Transfer.....%@" },
    Row { "asyncInsertFile:withCompletionHandler:", &RestInterface::asyncInsertFile, "SyncFileChanges.svc/InsertFile",
        &QueryParser::parseInsertFileQuery, &DataParser::parseInsertFileResponseData },
    Row { "asyncInsertSharedFilesTransfer:withCompletionHandler:", &RestInterface::asyncInsertSharedFilesTransfer,
        "SyncFileChanges.svc/InsertSharedFilesTransfer", &QueryParser::parseInsertSharedFilesTransferQuery,
        &DataParser::parseInsertSharedFilesTransferResponseData },
    Row { "asyncupdateBSUploadStreamStart:withCompletionHandler:", &RestInterface::asyncupdateBSUploadStreamStart,
        "Uploads.svc/UpdateBSUploadStreamStarted", &QueryParser::parseUpdateBSUploadStreamStartedQuery,
        &DataParser::parseUpdateBSUploadStreamStartedResponseData },
    Row { "asyncCheckFileExistsInDownloads:withCompletionhandler:", &RestInterface::asyncCheckFileExistsInDownloads,
        "Downloads.svc/CheckFileExistsInDownloads", &QueryParser::parseCheckFileExistsInDownloadsQuery,
        &DataParser::parseCheckFileExistsInDownloadsResponseData },
    Row { "asyncUpdateBSUploadStreamFailed:withCompletionHandler:", &RestInterface::asyncUpdateBSUploadStreamFailed,
        "Uploads.svc/UpdateBSUploadStreamFailed", &QueryParser::parseUpdateBSUploadStreamFailedQuery,
        &DataParser::parseUpdateBSUploadStreamFailedResponseData },
    Row { "asyncCheckFileExistsInTransfers:withCompletionhandler:", &RestInterface::asyncCheckFileExistsInTransfers,
        "MAC/SharedFiles.svc/CheckFileExistsInTransfers", &QueryParser::parseCheckFileExistsInTransfersQuery,
        &DataParser::parseCheckFileExistsInTransfersResponseData },
    Row { "asyncUpdateBSSendStreamStarted:withCompletionHandler:", &RestInterface::asyncUpdateBSSendStreamStarted,
        "MAC/SharedFiles.svc/UpdateBSSendStreamStarted", &QueryParser::parseUpdateBSSendStreamStartedQuery,
        &DataParser::parseUpdateBSSendStreamstartedResponseData },
    Row { "asyncUpdateBSSendStreamFailed:withCompletionHandler:", &RestInterface::asyncUpdateBSSendStreamFailed,
        "MAC/SharedFiles.svc/UpdateBSSendStreamFailed", &QueryParser::parseUpdateBSSendStreamFailedQuery,
        &DataParser::parseUpdateBSSendStreamFailedResponseData },
    Row { "asyncUpdateBSReceiveStreamStart:withCompletionHandler:", &RestInterface::asyncUpdateBSReceiveStreamStart,
        "MAC/SharedFiles.svc/UpdateBSReceiveStreamStarted", &QueryParser::parseUpdateBSReceiveStreamStartedQuery,
        &DataParser::parseUpdateBSReceiveStreamStartedResponseData },
    Row { "asyncUpdateBSReceiveStreamfailed:withCompletionHandler:", &RestInterface::asyncUpdateBSReceiveStreamfailed,
        "MAC/SharedFiles.svc/UpdateBSReceiveStreamFailed", &QueryParser::parseUpdateBSReceiveStreamFailedQuery,
        &DataParser::parseUpdateBSReceiveStreamFailedResponseData },
    Row { "asyncupdateBSDownloadStreamStart:withCompletionHandler:", &RestInterface::asyncupdateBSDownloadStreamStart,
        "Downloads.svc/UpdateBSDownloadStreamStarted", &QueryParser::parseUpdateBSDownloadStreamStartedQuery,
        &DataParser::parseUpdateBSDownloadStreamStartedResponseData },
    Row { "asyncupdateBSDownloadStreamFailed:withCompletionHandler:", &RestInterface::asyncupdateBSDownloadStreamFailed,
        "Downloads.svc/UpdateBSDownloadStreamFailed\uFFFC", &QueryParser::parseUpdateBSDownloadStreamFailedQuery,
        &DataParser::parseUpdateBSDownloadStreamFailedResponseData },
    Row { "asyncGetTopFileDeleteRequest:withCompletionHandler:", &RestInterface::asyncGetTopFileDeleteRequest,
        "Downloads.svc/GetTopFileDeleteRequest", &QueryParser::parseGetTopFileDeleteRequestQuery,
        &DataParser::parseGetTopFileResponseData },
    Row { "asyncUpdateBSFileDeleted:withCompletionHandler:", &RestInterface::asyncUpdateBSFileDeleted,
        "Downloads.svc/UpdateBSFileDeleted", &QueryParser::parseUpdateBSFileDeletedQuery,
        &DataParser::parseUpdateBSFileDeleteResponseData },
};

const StreamDownloadRow streamDownloadRow { "asyncGetTopFileUploadWithStream:withCompletionHandler:",
    &RestInterface::asyncGetTopFileUploadWithStream, "Uploads.svc/GetTopFileUploadWithStream",
    &QueryParser::parseGetTopFileUploadQuery };

template<typename Visit>
void forEachRow(Visit&& visit)
{
    std::apply([&](const auto&... row) { (visit(row), ...); }, operationRows);
}

// A record with every property set to a text naming its key (a list: two such records).
template<typename Query>
Query filledQuery()
{
    if constexpr (IsRecordList<Query>::value) {
        return { filledQuery<typename Query::value_type>(), filledQuery<typename Query::value_type>() };
    } else {
        Value fields = Value::dictionary();
        std::apply(
            [&](const auto&... key) { (fields.setObject(Value("value-of-" + std::string(key.key)), key.key), ...); },
            KeyList<Query>::keys);
        return decode<Query>(fields);
    }
}

// What the test server answers for a server method.
std::string replyFor(const std::string& path)
{
    if (path == "SyncFileChanges.svc/SyncFilesInTableAndCloud")
        return R"([{"FileID":"7","ReturnStatus":"1","BaseSystemFileID":"9"},{"FileID":"8","ReturnStatus":"0"}])";
    // The bare-value decoders raise on a reply that holds "ReturnStatus".
    if (path == "MAC/SharedFiles.svc/UploadFileWithStream" || path == "MAC/SharedFiles.svc/UpdateSendFileToTransfer")
        return R"({"error":{"Message":"none"}})";
    return R"({"ReturnStatus":"1","ReturnVal":"v","ReturnMsg":"m","ComputerID":"42","UserID":"u","FileID":"7",)"
           R"("FilePath":"a\\b","IsExists":"1","ByteStartPos":"0","DeleteRequestID":"3","error":{"Message":"none"}})";
}

// What a reply decodes to, worked out from the reply and the record's key list alone (not with the decoder under
// test): every key of the list that the reply holds, with the reply's value, in the encoded form of the record; a
// list of those for a list; the reply's "ReturnStatus" for the bare-value replies.
template<typename Response>
ReplyValue expectedDecoding(const Value& reply)
{
    if constexpr (std::is_same_v<Response, ReplyValue>) {
        return reply.objectForKey("ReturnStatus");
    } else if constexpr (IsRecordList<Response>::value) {
        Value list = Value::array();
        for (const Value& element : reply.elements())
            list.append(*expectedDecoding<typename Response::value_type>(element));
        return list;
    } else {
        Value fields = Value::dictionary();
        auto expectField = [&](const auto& key) {
            using Property = std::remove_cvref_t<decltype(std::declval<Response>().*key.property)>;
            const Value* value = reply.find(key.key);
            if constexpr (IsRecordList<Property>::value) {
                // A list of records is always there, empty when the reply has none.
                const Value none = Value::array();
                fields.setObject(*expectedDecoding<Property>(value && value->isArray() ? *value : none), key.key);
            } else if (value) {
                fields.setObject(*value, key.key);
            }
        };
        std::apply([&](const auto&... key) { (expectField(key), ...); }, KeyList<Response>::keys);
        return fields;
    }
}

template<typename Response>
ReplyValue encodedForm(const Response& decoded)
{
    if constexpr (std::is_same_v<Response, ReplyValue>)
        return decoded;
    else
        return encode(decoded);
}

class RestInterfaceTable : public RestClientTest {
protected:
    RestInterfaceTable()
        : RestClientTest([](const httplib::Request& request, httplib::Response& response) {
            response.set_content(replyFor(request.path.substr(std::string(servicePrefix).size())), "application/json");
        })
    {
        testsupport::writeFile(localFile, "streamed contents");
    }

    // The query a row is called with: every field filled, and for the stream upload a local file that exists.
    template<typename Query>
    Query queryFor() const
    {
        Query query = filledQuery<Query>();
        if constexpr (std::is_same_v<Query, UpdateFileRequestQuery>)
            query.filePath = serverForm(localFile);
        return query;
    }

    // Calls the row's operation and checks what reached the server and what came back.
    template<typename Query, typename Response>
    void expectRow(const Row<Query, Response>& row)
    {
        SCOPED_TRACE(row.selector);
        log.clear();
        const std::size_t receivedBefore = server.received().size();
        const Query query = queryFor<Query>();
        Recorder<const Outcome<Response>&, TransportStatus> callback;
        row.operation(query, callback.callback());
        ASSERT_TRUE(callback.waitFor());
        const auto& [object, status] = callback.only().arguments;
        const Value encoded = row.encoder(query);
        if (row.logLine) {
            EXPECT_TRUE(log.contains(platform::format(row.logLine, encoded))) << row.logLine;
        }

        const auto received = server.received();
        if (row.path.ends_with("\uFFFC")) {
            // No URL can be made of this path: the request fails before it is sent.
            EXPECT_EQ(received.size(), receivedBefore);
            EXPECT_EQ(status, TransportFailed);
            ASSERT_TRUE(std::holds_alternative<platform::Error>(object));
            EXPECT_EQ(std::get<platform::Error>(object).code, platform::http::URLErrorBadURL);
            return;
        }
        ASSERT_EQ(received.size(), receivedBefore + 1);
        EXPECT_EQ(received.back().method, "POST");
        EXPECT_EQ(received.back().path, row.path);
        switch (row.carried) {
        case Carried::Json:
            EXPECT_EQ(received.back().body, platform::writeJson(encoded, { .prettyPrinted = true }));
            break;
        case Carried::SyncDataArray:
            EXPECT_EQ(received.back().body, platform::writeJson(*encoded.find("syncData"), { .prettyPrinted = true }));
            break;
        case Carried::FileStream:
            EXPECT_EQ(received.back().body, "streamed contents");
            EXPECT_EQ(received.back().header("Content-Type"), "application/octet-stream");
            EXPECT_EQ(received.back().header("FileRequestID"), "value-of-FileRequestID");
            break;
        }
        ASSERT_EQ(status, TransportSucceeded);
        ASSERT_TRUE(std::holds_alternative<Response>(object));
        const ReplyValue decoded = encodedForm(std::get<Response>(object));
        const ReplyValue expected = expectedDecoding<Response>(platform::readJson(replyFor(row.path)));
        EXPECT_TRUE(decoded == expected) << (decoded ? decoded->description() : "(absent)") << " instead of "
                                         << (expected ? expected->description() : "(absent)");
    }

    testsupport::TempDir files;
    std::filesystem::path localFile = files / "upload.bin";
};

}

TEST_F(RestInterfaceTable, EveryOperationPostsItsEncodedRecordToItsPathAndDecodesTheReplyWithItsDecoder)
{
    std::size_t rows = 0;
    forEachRow([&](const auto& row) {
        ++rows;
        expectRow(row);
    });

    SCOPED_TRACE(streamDownloadRow.selector);
    StreamRecorder streamed;
    const GetTopFileUploadQuery query = filledQuery<GetTopFileUploadQuery>();
    streamDownloadRow.operation(query, streamed.callback());
    ASSERT_TRUE(streamed.waitFor());
    const auto received = server.received().back();
    EXPECT_EQ(received.path, streamDownloadRow.path);
    EXPECT_EQ(received.body, platform::writeJson(streamDownloadRow.encoder(query), { .prettyPrinted = true }));
    EXPECT_EQ(received.header("Accept"), "application/json");
    const auto& [first, second, status] = streamed.only().arguments;
    EXPECT_EQ(status, TransportSucceeded);
    EXPECT_TRUE(std::holds_alternative<platform::http::Response>(first));
    ASSERT_NE(valueIn(second), nullptr);
    const std::string reply = replyFor(streamDownloadRow.path);
    EXPECT_EQ(*valueIn(second), Value::data(platform::Bytes(reply.begin(), reply.end())));

    EXPECT_EQ(rows + 1, 39u);
}

TEST_F(RestInterfaceTable, WithoutNetworkEveryOperationCallsBackAtOnceWithNothingAndStatusOne)
{
    platform::PinnedReachabilityFlags unreachable { 0 };
    forEachRow([&]<typename Query, typename Response>(const Row<Query, Response>& row) {
        SCOPED_TRACE(row.selector);
        Recorder<const Outcome<Response>&, TransportStatus> callback;
        row.operation(queryFor<Query>(), callback.callback());
        ASSERT_EQ(callback.count(), 1u) << "the callback came after the call returned";
        const auto call = callback.only();
        EXPECT_TRUE(std::holds_alternative<std::monostate>(std::get<0>(call.arguments)));
        EXPECT_EQ(std::get<1>(call.arguments), TransportNotReachable);
        EXPECT_EQ(call.place.thread, std::this_thread::get_id());
    });
    StreamRecorder streamed;
    streamDownloadRow.operation(GetTopFileUploadQuery {}, streamed.callback());
    ASSERT_EQ(streamed.count(), 1u);
    const auto& [first, second, status] = streamed.only().arguments;
    EXPECT_TRUE(isNothing(first));
    EXPECT_TRUE(isNothing(second));
    EXPECT_EQ(status, TransportNotReachable);
    EXPECT_TRUE(server.received().empty());
}
