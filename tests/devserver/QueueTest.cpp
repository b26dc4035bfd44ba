// The upload, download and delete queues, filled through the admin interface and worked through the service's
// methods, and the two stream methods.

#include "devserver/DevServerTest.h"

using namespace devservertest;
using namespace messages;
using platform::Value;
namespace o = messages::operations;

class Queues : public DevServerTest {
protected:
    static std::string enqueue(const std::string& route, const Value& row, const std::string& idColumn)
    {
        const auto reply = postJson(server->adminUrl(route), row);
        EXPECT_EQ(reply.status, 200) << reply.body;
        return std::to_string(reply.json().find(idColumn)->number().int64Value());
    }

    static std::string stateOf(const std::string& route, std::size_t index)
    {
        return get(server->adminUrl(route)).json().at(index).find("state")->string();
    }

    static GetTopFileUploadResponseData topUpload(const std::string& computer)
    {
        GetTopFileUploadQuery query;
        query.toComputerId = computer;
        return ask(*server, o::asyncGetTopFileUpload, query);
    }
};

TEST_F(Queues, TheTopUploadOfAComputerIsItsOldestPendingOne)
{
    enqueue("uploads", Value::dictionary({ { "to_computer_id", "8" }, { "file_name", "other.txt" } }), "file_upload_id");
    const auto id = enqueue("uploads",
        Value::dictionary({ { "to_computer_id", "7" }, { "file_name", "a.txt" }, { "server_path", "Cloud\\a.txt" },
            { "transit_upload_path", "Transit\\a.txt" }, { "attachment", "att" } }),
        "file_upload_id");
    enqueue("uploads", Value::dictionary({ { "to_computer_id", "7" }, { "file_name", "b.txt" } }), "file_upload_id");

    const auto top = topUpload("7");
    EXPECT_EQ(textOf(top.returnStatus), "0");
    EXPECT_EQ(textOf(top.fileUploadId), id);
    EXPECT_EQ(textOf(top.fileName), "a.txt");
    EXPECT_EQ(textOf(top.serverPath), "Cloud\\a.txt");
    EXPECT_EQ(textOf(top.transitUploadPath), "Transit\\a.txt");
    EXPECT_EQ(textOf(top.attachment), "att");
    EXPECT_EQ(textOf(top.isFile), "1");
    EXPECT_EQ(textOf(top.toComputerId), "7");
    EXPECT_EQ(textOf(top.uploadProcessed), "0");
}

TEST_F(Queues, AnEmptyUploadQueueAnswersReturnStatus1)
{
    const auto top = topUpload("7");
    EXPECT_EQ(textOf(top.returnStatus), "1");
    EXPECT_EQ(textOf(top.fileUploadId), "");
}

TEST_F(Queues, AnUploadGoesFromStartedToFailedAndBackToTheTopToDone)
{
    const auto id = enqueue("uploads", Value::dictionary({ { "to_computer_id", "7" } }), "file_upload_id");
    UpdateBSUploadStreamStartedQuery started;
    started.fileUploadId = id;
    EXPECT_EQ(textOf(ask(*server, o::asyncupdateBSUploadStreamStart, started).returnStatus), "0");
    EXPECT_EQ(stateOf("uploads", 0), "started");
    EXPECT_EQ(textOf(topUpload("7").returnStatus), "1");

    UpdateBSUploadStreamFailedQuery failed;
    failed.fileUploadId = id;
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateBSUploadStreamFailed, failed).returnStatus), "0");
    EXPECT_EQ(textOf(topUpload("7").uploadProcessed), "1");

    UpdateFileUploadQuery done;
    done.fileUploadId = id;
    done.serverPath = "Cloud\\done.txt";
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateFileUpload, done).returnStatus), "0");
    EXPECT_EQ(stateOf("uploads", 0), "done");
    EXPECT_EQ(*get(server->adminUrl("uploads")).json().at(0).find("server_path"), Value("Cloud\\done.txt"));
}

TEST_F(Queues, UpdatingAnUploadThatIsNotQueuedAnswersReturnStatus1)
{
    UpdateBSUploadStreamStartedQuery started;
    started.fileUploadId = "42";
    const auto reply = ask(*server, o::asyncupdateBSUploadStreamStart, started);
    EXPECT_EQ(textOf(reply.returnStatus), "1");
    EXPECT_NE(textOf(reply.error).find("no entry 42"), std::string::npos);
}

TEST_F(Queues, TheStreamDownloadReturnsTheStoredBytesOfTheTopUpload)
{
    enqueue("uploads", Value::dictionary({ { "to_computer_id", "7" }, { "content", "the file's bytes" } }), "file_upload_id");
    GetTopFileUploadQuery query;
    query.toComputerId = "7";
    const auto reply = call(*server, o::asyncGetTopFileUploadWithStream, query);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.contentType, "application/octet-stream");
    EXPECT_EQ(reply.body, "the file's bytes");
    query.toComputerId = "8";
    EXPECT_EQ(call(*server, o::asyncGetTopFileUploadWithStream, query).body, "");
}

TEST_F(Queues, TheTopDownloadRequestCarriesItsFields)
{
    const auto id = enqueue("downloads",
        Value::dictionary({ { "from_computer_id", "7" }, { "file_path", "h\\a.txt" }, { "transit_download_path", "T\\a" },
            { "from_shared", "1" }, { "file_id", "55" }, { "byte_start_pos", "10" } }),
        "file_request_id");
    GetTopFileRequestQuery query;
    query.fromComputerID = "7";
    const auto top = ask(*server, o::asyncGetTopFileRequest, query);
    EXPECT_EQ(textOf(top.returnStatus), "0");
    EXPECT_EQ(textOf(top.fileRequestID), id);
    EXPECT_EQ(textOf(top.filePath), "h\\a.txt");
    EXPECT_EQ(textOf(top.TransitDownloadPath), "T\\a");
    EXPECT_EQ(textOf(top.sharedFlag), "1");
    EXPECT_EQ(textOf(top.ownerFileID), "55");
    EXPECT_EQ(textOf(top.byteStartPos), "10");
    query.fromComputerID = "8";
    EXPECT_EQ(textOf(ask(*server, o::asyncGetTopFileRequest, query).returnStatus), "1");
}

TEST_F(Queues, AnUpdatedDownloadRequestIsDoneWithItsAttachment)
{
    const auto id = enqueue("downloads", Value::dictionary({ { "from_computer_id", "7" } }), "file_request_id");
    UpdateFileRequestQuery update;
    update.fileRequestId = id;
    update.attachment = "QUJD";
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateFileRequest, update).ReturnStatus), "0");
    const auto row = get(server->adminUrl("downloads")).json().at(0);
    EXPECT_EQ(*row.find("state"), Value("done"));
    EXPECT_EQ(*row.find("attachment"), Value("QUJD"));
}

TEST_F(Queues, ADownloadRequestGoesFromStartedToFailed)
{
    const auto id = enqueue("downloads", Value::dictionary({ { "from_computer_id", "7" } }), "file_request_id");
    UpdateBSDownloadStreamStartedQuery started;
    started.fileRequestId = id;
    EXPECT_EQ(textOf(ask(*server, o::asyncupdateBSDownloadStreamStart, started).returnStatus), "0");
    EXPECT_EQ(stateOf("downloads", 0), "started");
    // The client's own path of this notice ends in U+FFFC and reaches nothing; the method answers at its name.
    const auto reply = postJson(server->methodUrl("Downloads.svc/UpdateBSDownloadStreamFailed"),
        QueryParser::parseUpdateBSDownloadStreamFailedQuery(UpdateBSDownloadStreamFailedQuery { id }));
    EXPECT_EQ(*reply.json().find("ReturnStatus"), Value("0"));
    EXPECT_EQ(stateOf("downloads", 0), "failed");
}

TEST_F(Queues, TheStreamUploadStoresTheBytesWithItsThreeHeadersAndCompletesTheRequest)
{
    const auto id = enqueue("downloads", Value::dictionary({ { "from_computer_id", "7" } }), "file_request_id");
    const std::string bytes("\x00\x01\xff binary \r\n", 13);
    const auto reply = send({ .url = server->methodUrl("Downloads.svc/UpdateFileRequestWithStream"),
        .body = bytes,
        .headers = { "Content-Type: application/octet-stream", "FilePath: Users\\ann\\Korbanhold\\a.bin",
            "TransitDownloadPath: Transit\\a.bin", "FileRequestID: " + id } });
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(textOf(DataParser::parseUpdateFileRequestResponseData(reply.json()).ReturnStatus), "0");

    const auto streams = get(server->adminUrl("streams")).json();
    ASSERT_EQ(streams.count(), 1u);
    EXPECT_EQ(*streams.at(0).find("file_path"), Value("Users\\ann\\Korbanhold\\a.bin"));
    EXPECT_EQ(*streams.at(0).find("transit_download_path"), Value("Transit\\a.bin"));
    EXPECT_EQ(*streams.at(0).find("file_request_id"), Value(id));
    const auto streamId = std::to_string(streams.at(0).find("id")->number().int64Value());
    EXPECT_EQ(get(server->adminUrl("streams/" + streamId + "/content")).body, bytes);
    EXPECT_EQ(stateOf("downloads", 0), "done");
}

TEST_F(Queues, AStreamUploadWithoutItsRequestIdIsNotStored)
{
    const auto reply = send({ .url = server->methodUrl("Downloads.svc/UpdateFileRequestWithStream"),
        .body = "bytes",
        .headers = { "Content-Type: application/octet-stream", "FilePath: a" } });
    EXPECT_EQ(*reply.json().find("ReturnStatus"), Value("1"));
    EXPECT_EQ(get(server->adminUrl("streams")).json(), Value::array());
}

TEST_F(Queues, TheBytesReceivedForAPathTellWhereAResumedDownloadStarts)
{
    send({ .url = server->methodUrl("Downloads.svc/UpdateFileRequestWithStream"),
        .body = "12345",
        .headers = { "Content-Type: application/octet-stream", "FilePath: h\\a.txt", "FileRequestID: 1" } });
    CheckFileExistsInDownloadsQuery query;
    query.filePath = "h\\a.txt";
    const auto found = ask(*server, o::asyncCheckFileExistsInDownloads, query);
    EXPECT_EQ(textOf(found.returnStatus), "0");
    EXPECT_EQ(textOf(found.byteStartPos), "5");
    query.filePath = "h\\b.txt";
    const auto missing = ask(*server, o::asyncCheckFileExistsInDownloads, query);
    EXPECT_EQ(textOf(missing.returnStatus), "1");
    EXPECT_EQ(textOf(missing.byteStartPos), "0");
}

TEST_F(Queues, ADeleteRequestIsOnTopUntilItsFileIsDeleted)
{
    const auto id = enqueue("delete-requests", Value::dictionary({ { "from_computer_id", "7" }, { "file_path", "h\\old.txt" } }),
        "delete_request_id");
    GetTopFileDeleteRequestQuery query;
    query.fromComputerID = "7";
    const auto top = ask(*server, o::asyncGetTopFileDeleteRequest, query);
    EXPECT_EQ(textOf(top.returnStatus), "0");
    EXPECT_EQ(textOf(top.deleteRequestID), id);
    EXPECT_EQ(textOf(top.filePath), "h\\old.txt");

    UpdateBSFileDeletedQuery deleted;
    deleted.deleteRequestID = id;
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateBSFileDeleted, deleted).returnStatus), "0");
    EXPECT_EQ(textOf(ask(*server, o::asyncGetTopFileDeleteRequest, query).returnStatus), "1");
}
