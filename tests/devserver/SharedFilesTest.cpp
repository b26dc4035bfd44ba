// Shared folders and their transfers, single files and shared-folder changes that computers report.

#include "devserver/DevServerTest.h"
#include "platform/Json.h"

using namespace devservertest;
using namespace messages;
using platform::Value;
namespace o = messages::operations;

class SharedFiles : public DevServerTest {
protected:
    static std::string addTransfer(const std::string& kind, const Value& record, const std::string& computer = "7")
    {
        const auto reply = postJson(server->adminUrl("shared-transfers"),
            Value::dictionary({ { "kind", kind }, { "user_id", "1" }, { "computer_id", computer }, { "record", record } }));
        EXPECT_EQ(reply.status, 200) << reply.body;
        return std::to_string(reply.json().find("shared_file_transfer_id")->number().int64Value());
    }

    static InsertFileResponseData insertFile(const std::string& computer, std::optional<std::string> fullPath)
    {
        InsertFileQuery query;
        query.computerID = computer;
        query.fullPath = std::move(fullPath);
        return ask(*server, o::asyncInsertFile, query);
    }

    static GetSharedFilesTransferDataResponseData transferData()
    {
        GetSharedFilesTransferDataQuery query;
        query.userId = "1";
        query.computerId = "7";
        return ask(*server, o::asyncGetSharedFilesTransferData, query);
    }
};

TEST_F(SharedFiles, TransferDataListsTheOpenTransfersOfTheComputerWithTheirIds)
{
    const auto send = addTransfer("FileToTransfer",
        Value::dictionary({ { "FullPath", "h\\shared\\a.txt" }, { "FullPathfromFileTable", "h\\shared\\a.txt" },
            { "ChangeType", "Created" }, { "NewFullPath", "h\\shared\\b.txt" } }));
    const auto receive = addTransfer("RecFileFromTransfer",
        Value::dictionary({ { "FullPathFromFileTable", "h\\in\\c.txt" }, { "SavedFileID", "31" } }));
    addTransfer("FileToTransfer", Value::dictionary({ { "FullPath", "elsewhere" } }), "8");

    const auto data = transferData();
    EXPECT_EQ(textOf(data.ReturnStatus), "0");
    ASSERT_EQ(data.fileToTransferArray.size(), 1u);
    const auto& toSend = data.fileToTransferArray[0];
    EXPECT_EQ(textOf(toSend.sharedFileTransferId), send);
    EXPECT_EQ(textOf(toSend.fullPath), "h\\shared\\a.txt");
    EXPECT_EQ(textOf(toSend.fullPathfromFileTable), "h\\shared\\a.txt");
    EXPECT_EQ(textOf(toSend.fullPathNew), "h\\shared\\b.txt");
    EXPECT_EQ(textOf(toSend.toCloud), "");
    ASSERT_EQ(data.RecFileFromTransferArray.size(), 1u);
    EXPECT_EQ(textOf(data.RecFileFromTransferArray[0].sharedFileTransferId), receive);
    EXPECT_EQ(textOf(data.RecFileFromTransferArray[0].fullPathFromFileTable), "h\\in\\c.txt");
    EXPECT_EQ(textOf(data.RecFileFromTransferArray[0].savedFileId), "31");
}

TEST_F(SharedFiles, TransferDataListsTheSharedFoldersAndTheComputersOfTheirOwners)
{
    UserRegistrationQuery owner;
    owner.mailId = "bob@example.org";
    owner.nickName = "bob";
    const auto bob = ask(*server, o::asyncUserRegistration, owner);
    postJson(server->adminUrl("shared-files"), Value::dictionary({ { "user_id", "1" },
                                                   { "owner_user_id", textOf(bob.userId) }, { "file_id", "12" },
                                                   { "shared_status", "Shared" } }));

    const auto data = transferData();
    ASSERT_EQ(data.SharedfoldersWithStatusArray.size(), 1u);
    EXPECT_EQ(textOf(data.SharedfoldersWithStatusArray[0].fileId), "12");
    EXPECT_EQ(textOf(data.SharedfoldersWithStatusArray[0].sharedStatus), "Shared");
    ASSERT_EQ(data.OwnerComputersArray.size(), 1u);
    const auto& computer = data.OwnerComputersArray[0];
    EXPECT_EQ(textOf(computer.computerId), textOf(bob.cloudComputerId));
    EXPECT_EQ(textOf(computer.isCloud), "1");
    EXPECT_EQ(textOf(computer.mailId), "bob@example.org");
    EXPECT_EQ(textOf(computer.nickName), "bob");
    EXPECT_EQ(textOf(computer.userId), textOf(bob.userId));
}

TEST_F(SharedFiles, ATransferLeavesTheListWhenItReachesAFinalState)
{
    const auto sent = addTransfer("FileToTransfer", Value::dictionary());
    const auto received = addTransfer("RecFileFromTransfer", Value::dictionary());
    const auto deleted = addTransfer("RecFileFromTransfer", Value::dictionary());

    UpdateBSSendStreamStartedQuery started;
    started.sharedFileTransferID = sent;
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateBSSendStreamStarted, started).returnStatus), "0");
    EXPECT_EQ(transferData().fileToTransferArray.size(), 1u);
    UpdateSendFileToTransferQuery send;
    send.SharedFileTransferID = sent;
    EXPECT_EQ(*call(*server, o::asyncupdateSendFileToTransfer, send).json().find("ReturnStatus"), Value("0"));
    EXPECT_TRUE(transferData().fileToTransferArray.empty());

    UpdateFileReceivedQuery receivedQuery;
    receivedQuery.sharedFileTransferID = received;
    receivedQuery.isFileExists = "1";
    EXPECT_EQ(textOf(ask(*server, o::asyncUpdateFileReceived, receivedQuery).ReturnStatus), "0");
    DeleteReceivedFileFromTransferQuery deletedQuery;
    deletedQuery.sharedFileTransferID = deleted;
    EXPECT_EQ(textOf(ask(*server, o::asyncDeleteReceivedFileFromTransfer, deletedQuery).ReturnStatus), "0");
    EXPECT_TRUE(transferData().RecFileFromTransferArray.empty());

    const auto states = get(server->adminUrl("shared-transfers")).json();
    EXPECT_EQ(*states.at(0).find("state"), Value("sent"));
    EXPECT_EQ(*states.at(1).find("state"), Value("received"));
    EXPECT_EQ(*states.at(2).find("state"), Value("deleted"));
}

TEST_F(SharedFiles, EveryTransferNoticeMovesItsTransferToItsState)
{
    const auto id = addTransfer("FileToTransfer", Value::dictionary());
    const auto stateAfter = [&](auto operation, auto query) {
        const auto reply = call(*server, operation, query).json();
        EXPECT_EQ(*reply.find("ReturnStatus"), Value("0"));
        return get(server->adminUrl("shared-transfers")).json().at(0).find("state")->string();
    };
    EXPECT_EQ(stateAfter(o::asyncUpdateFileExist, UpdateFileExistQuery { id }), "file-exists");
    EXPECT_EQ(stateAfter(o::asyncUpdateBSSendStreamFailed, UpdateBSSendStreamFailedQuery { id }), "send-failed");
    EXPECT_EQ(stateAfter(o::asyncUpdateBSReceiveStreamStart, UpdateBSReceiveStreamStartedQuery { id }), "receive-started");
    EXPECT_EQ(stateAfter(o::asyncUpdateBSReceiveStreamfailed, UpdateBSReceiveStreamFailedQuery { id }), "receive-failed");
    EXPECT_EQ(stateAfter(o::asyncUpdateFileSendReceived, UpdateFileSendReceivedQuery { id }), "send-received");
}

TEST_F(SharedFiles, ANoticeForATransferThatDoesNotExistAnswersReturnStatus1)
{
    UpdateBSReceiveStreamStartedQuery query;
    query.sharedFileTransferID = "404";
    EXPECT_EQ(*call(*server, o::asyncUpdateBSReceiveStreamStart, query).json().find("ReturnStatus"), Value("1"));
}

TEST_F(SharedFiles, ATransferStartsAtItsFirstByteWhenItExists)
{
    CheckFileExistsInTransfersQuery query;
    query.sharedFileTransferID = addTransfer("RecFileFromTransfer", Value::dictionary());
    const auto found = ask(*server, o::asyncCheckFileExistsInTransfers, query);
    EXPECT_EQ(textOf(found.returnStatus), "0");
    EXPECT_EQ(textOf(found.byteStartPos), "0");
    query.sharedFileTransferID = "404";
    EXPECT_EQ(textOf(ask(*server, o::asyncCheckFileExistsInTransfers, query).returnStatus), "1");
}

TEST_F(SharedFiles, ARecordThatIsNotAJsonObjectIsRefusedByTheAdminInterface)
{
    const auto reply = postJson(server->adminUrl("shared-transfers"),
        Value::dictionary({ { "kind", "FileToTransfer" }, { "user_id", "1" }, { "computer_id", "7" }, { "record", "[1" } }));
    EXPECT_EQ(reply.status, 400);
}

TEST_F(SharedFiles, InsertFileAssignsAFileIdAndAKnownPathKeepsIt)
{
    const auto first = insertFile("7", "h\\shared\\new.txt");
    EXPECT_EQ(textOf(first.returnStatus), "0");
    EXPECT_EQ(textOf(first.fileID), std::to_string(fileTable(*server, "7").at("h\\shared\\new.txt")));
    EXPECT_EQ(textOf(insertFile("7", "h\\shared\\new.txt").fileID), textOf(first.fileID));
    EXPECT_EQ(textOf(insertFile("7", std::nullopt).returnStatus), "1");
}

TEST_F(SharedFiles, AReportedSharedFolderChangeIsStoredAsItCame)
{
    InsertSharedFilesTransferQuery query;
    query.computerID = "7";
    query.fullPath = "h\\shared\\a.txt";
    query.changeType = "Created";
    query.StrXMLFileID = "x1";
    EXPECT_EQ(textOf(ask(*server, o::asyncInsertSharedFilesTransfer, query).returnStatus), "0");
    const auto rows = get(server->adminUrl("shared-changes")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("computer_id"), Value("7"));
    EXPECT_EQ(platform::readJson(rows.at(0).find("record")->string()), QueryParser::parseInsertSharedFilesTransferQuery(query));
}

TEST_F(SharedFiles, InsertFileOfASharedItemInFiveFieldsStoresItsPathAndAttributes)
{
    const auto reply = insertFile("map-3", "1*4711\\docs\\f.txt*2*11-22-2026 03:04:05 AM*1");
    EXPECT_EQ(textOf(reply.returnStatus), "0");
    const auto rows = get(server->adminUrl("files?computer=map-3")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("full_path"), Value("4711\\docs\\f.txt"));
    EXPECT_EQ(rows.at(0).find("file_id")->description(), textOf(reply.fileID));
    EXPECT_EQ(*rows.at(0).find("is_file"), Value("1"));
    EXPECT_EQ(*rows.at(0).find("file_size"), Value("2"));
    EXPECT_EQ(*rows.at(0).find("modified_date"), Value("11-22-2026 03:04:05 AM"));
}

TEST_F(SharedFiles, ASharedRenameWhoseFileNumberIsAJsonNumberIsStoredAsItCame)
{
    InsertSharedFilesTransferQuery query;
    query.computerID = "7";
    query.oldFullPath = "\\Team (Shared)\\a.txt";
    query.fullPath = "\\Team (Shared)\\b.txt";
    query.baseSystemFileID = Value(platform::Number::fromUnsignedLongLong(123456));
    query.changeType = "2";
    EXPECT_EQ(textOf(ask(*server, o::asyncInsertSharedFilesTransfer, query).returnStatus), "0");
    const auto rows = get(server->adminUrl("shared-changes")).json();
    ASSERT_EQ(rows.count(), 1u);
    const Value record = platform::readJson(rows.at(0).find("record")->string());
    EXPECT_EQ(record, QueryParser::parseInsertSharedFilesTransferQuery(query));
    EXPECT_TRUE(record.find("BaseSystemFileID")->isNumber());
}

TEST_F(SharedFiles, UploadFileWithStreamAnswersWhetherTheComputersTableHoldsThePath)
{
    postBatch(*server, { { "Created", "h\\shared\\a.txt" } });
    UploadFileWithStreamQuery query;
    query.computerID = "7";
    query.fullPathFromFileTable = "h\\shared\\a.txt";
    EXPECT_EQ(*call(*server, o::asyncUploadFileWithStream, query).json().find("ReturnStatus"), Value("0"));
    query.fullPathFromFileTable = "h\\shared\\b.txt";
    EXPECT_EQ(*call(*server, o::asyncUploadFileWithStream, query).json().find("ReturnStatus"), Value("1"));
}

TEST_F(SharedFiles, AFileExistsInTheCloudWhenSomeComputersTableHoldsIt)
{
    postBatch(*server, { { .type = "Created", .fullPath = "h\\a.txt", .computerId = "9" } });
    IsFileExistsInCloudQuery query;
    query.strFullPath = "h\\a.txt";
    EXPECT_EQ(textOf(ask(*server, o::asyncIsFileExistsInCloud, query).isExists), "1");
    query.strFullPath = "h\\b.txt";
    const auto missing = ask(*server, o::asyncIsFileExistsInCloud, query);
    EXPECT_EQ(textOf(missing.isExists), "0");
    EXPECT_EQ(textOf(missing.returnStatus), "0");
}
