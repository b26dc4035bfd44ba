#include "ExpectedKeys.h"

#include "messages/DataParser.h"
#include "platform/Json.h"

#include <gtest/gtest.h>

using namespace messages;
using namespace messages::testing;
using platform::Value;

namespace {

using Reply = GetSharedFilesTransferDataResponseData;

// Decodes one element as the decoder does inside a reply whose `member` array holds just that element, and gives
// the one record it lands in `list`.
template<typename Element>
auto decodingElementOf(const char* member, std::vector<Element> Reply::*list)
{
    return [=](const Value& element) {
        const Reply reply = DataParser::parseGetSharedFilesTransferDataResponseData(
            Value::dictionary({ { member, Value::array({ element }) } }));
        const auto& elements = reply.*list;
        EXPECT_EQ(elements.size(), 1u);
        return elements.empty() ? Element {} : elements.front();
    };
}

}

TEST(SharedTransferRecords, EveryElementRecordIsFilledFromExactlyItsKeysAndNeverFromError)
{
    expectDecodedKeys<FileToTransfer>("FileToTransfer",
        decodingElementOf("FileToTransfer", &Reply::fileToTransferArray),
        {
            { "KorbanholdPath", &FileToTransfer::korbanholdPath },
            { "ChangeType", &FileToTransfer::changeType },
            { "FromCloud", &FileToTransfer::fromCloud },
            { "FromComputerID", &FileToTransfer::fromComputerId },
            { "FullPath", &FileToTransfer::fullPath },
            { "FullPathfromFileTable", &FileToTransfer::fullPathfromFileTable },
            { "IsFile", &FileToTransfer::isFile },
            { "IsOwnerToSubscriber", &FileToTransfer::isOwnerToSubscriber },
            { "NewFullPath", &FileToTransfer::fullPathNew },
            { "OwnerFileID", &FileToTransfer::ownerFileID },
            { "PrevFolderFileID", &FileToTransfer::prevFolderFileId },
            { "SharedFileTransferID", &FileToTransfer::sharedFileTransferId },
            { "ToCloud", &FileToTransfer::toCloud },
            { "ToComputerID", &FileToTransfer::toComputerId },
            { "UserComputerID", &FileToTransfer::userComputerId },
            { "XMLFileID", &FileToTransfer::xmlFileId },
        },
        ErrorNeverRead);
    expectDecodedKeys<OwnerComputers>("OwnerComputers",
        decodingElementOf("OwnerComputers", &Reply::OwnerComputersArray),
        {
            { "KorbanholdPath", &OwnerComputers::korbanholdPath },
            { "CloudPath", &OwnerComputers::cloudPath },
            { "ComputerID", &OwnerComputers::computerId },
            { "IsAdmin", &OwnerComputers::isAdmin },
            { "IsCloud", &OwnerComputers::isCloud },
            { "MailID", &OwnerComputers::mailId },
            { "NickName", &OwnerComputers::nickName },
            { "Status", &OwnerComputers::status },
            { "UserComputerMapID", &OwnerComputers::userComputerMapId },
            { "UserID", &OwnerComputers::userId },
        },
        ErrorNeverRead);
    expectDecodedKeys<RecFileFromTransfer>("RecFileFromTransfer",
        decodingElementOf("RecFileFromTransfer", &Reply::RecFileFromTransferArray),
        {
            { "ChangeType", &RecFileFromTransfer::changeType },
            { "FromCloud", &RecFileFromTransfer::fromCloud },
            { "FromComputerID", &RecFileFromTransfer::fromComputerId },
            { "FullPath", &RecFileFromTransfer::fullPath },
            { "FullPathFromFileTable", &RecFileFromTransfer::fullPathFromFileTable },
            { "IsFile", &RecFileFromTransfer::isFile },
            { "IsOwnerToSubscriber", &RecFileFromTransfer::isOwnerToSubscriber },
            { "NewFullPath", &RecFileFromTransfer::fullPathNew },
            { "NickName", &RecFileFromTransfer::nickName },
            { "OwnerFileID", &RecFileFromTransfer::ownerFileId },
            { "PrevFolderFileID", &RecFileFromTransfer::prevFolderFileId },
            { "SavedFileID", &RecFileFromTransfer::savedFileId },
            { "SharedFileTransferID", &RecFileFromTransfer::sharedFileTransferId },
            { "SharedFolderFileID", &RecFileFromTransfer::sharedFolderFileId },
            { "ToCloud", &RecFileFromTransfer::toCloud },
            { "UserComputerID", &RecFileFromTransfer::userComputerId },
            { "XMLFileID", &RecFileFromTransfer::xmlFileId },
            { "ToComputerID", &RecFileFromTransfer::toComputerId },
        },
        ErrorNeverRead);
    expectDecodedKeys<SharedfoldersWithStatus>("SharedfoldersWithStatus",
        decodingElementOf("SharedfoldersWithStatus", &Reply::SharedfoldersWithStatusArray),
        {
            { "FileID", &SharedfoldersWithStatus::fileId },
            { "SharedStatus", &SharedfoldersWithStatus::sharedStatus },
        },
        ErrorNeverRead);
}

TEST(SharedTransferRecords, FullReplyFillsFourListsInReplyOrderAndTheStatus)
{
    const Value reply = platform::readJson(R"({
        "FileToTransfer": [{"FullPath": "/t1"}, {"FullPath": "/t2"}],
        "OwnerComputers": [{"ComputerID": "c1"}],
        "RecFileFromTransfer": [{"SavedFileID": "s1"}, {"SavedFileID": "s2"}, {"SavedFileID": "s3"}],
        "ReturnStatus": "1",
        "SharedfoldersWithStatus": [{"FileID": "f1", "SharedStatus": "True"}],
        "error": {"Message": "not read"}
    })");
    const auto record = DataParser::parseGetSharedFilesTransferDataResponseData(reply);
    ASSERT_EQ(record.fileToTransferArray.size(), 2u);
    EXPECT_EQ(record.fileToTransferArray[0].fullPath, Value("/t1"));
    EXPECT_EQ(record.fileToTransferArray[1].fullPath, Value("/t2"));
    ASSERT_EQ(record.OwnerComputersArray.size(), 1u);
    EXPECT_EQ(record.OwnerComputersArray[0].computerId, Value("c1"));
    ASSERT_EQ(record.RecFileFromTransferArray.size(), 3u);
    EXPECT_EQ(record.RecFileFromTransferArray[2].savedFileId, Value("s3"));
    ASSERT_EQ(record.SharedfoldersWithStatusArray.size(), 1u);
    EXPECT_EQ(record.SharedfoldersWithStatusArray[0].sharedStatus, Value("True"));
    EXPECT_EQ(record.ReturnStatus, Value("1"));
}

TEST(SharedTransferRecords, ReplyWithOnlyAStatusGivesFourEmptyListsAndThatStatus)
{
    const auto record =
        DataParser::parseGetSharedFilesTransferDataResponseData(Value::dictionary({ { "ReturnStatus", "0" } }));
    EXPECT_TRUE(record.fileToTransferArray.empty());
    EXPECT_TRUE(record.OwnerComputersArray.empty());
    EXPECT_TRUE(record.RecFileFromTransferArray.empty());
    EXPECT_TRUE(record.SharedfoldersWithStatusArray.empty());
    EXPECT_EQ(record.ReturnStatus, Value("0"));
}

TEST(SharedTransferRecords, FileTablePathIsReadWithLowerCaseFromForFilesToSendAndCapitalFromForFilesReceived)
{
    const Value capital = Value::dictionary({ { "FullPathFromFileTable", "/capital" } });
    const Value lower = Value::dictionary({ { "FullPathfromFileTable", "/lower" } });
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(Value::dictionary({
        { "FileToTransfer", Value::array({ capital, lower }) },
        { "RecFileFromTransfer", Value::array({ capital, lower }) },
    }));
    ASSERT_EQ(reply.fileToTransferArray.size(), 2u);
    EXPECT_FALSE(reply.fileToTransferArray[0].fullPathfromFileTable.has_value());
    EXPECT_EQ(reply.fileToTransferArray[1].fullPathfromFileTable, Value("/lower"));
    ASSERT_EQ(reply.RecFileFromTransferArray.size(), 2u);
    EXPECT_EQ(reply.RecFileFromTransferArray[0].fullPathFromFileTable, Value("/capital"));
    EXPECT_FALSE(reply.RecFileFromTransferArray[1].fullPathFromFileTable.has_value());
}

TEST(SharedTransferRecords, NewFullPathFillsFullPathNewInBothTransferRecords)
{
    const Value element = Value::dictionary({ { "NewFullPath", "/renamed" } });
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(Value::dictionary({
        { "FileToTransfer", Value::array({ element }) },
        { "RecFileFromTransfer", Value::array({ element }) },
    }));
    ASSERT_EQ(reply.fileToTransferArray.size(), 1u);
    ASSERT_EQ(reply.RecFileFromTransferArray.size(), 1u);
    EXPECT_EQ(reply.fileToTransferArray[0].fullPathNew, Value("/renamed"));
    EXPECT_EQ(reply.RecFileFromTransferArray[0].fullPathNew, Value("/renamed"));
}

TEST(SharedTransferRecords, OwnerComputerAdminFlagGivenAsJsonTrueIsKeptAsTheBoolean)
{
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(
        platform::readJson(R"({"OwnerComputers": [{"IsAdmin": true}]})"));
    ASSERT_EQ(reply.OwnerComputersArray.size(), 1u);
    const auto& isAdmin = reply.OwnerComputersArray[0].isAdmin;
    ASSERT_TRUE(isAdmin.has_value());
    ASSERT_TRUE(isAdmin->isNumber());
    EXPECT_TRUE(isAdmin->number().isBoolean());
    EXPECT_TRUE(isAdmin->number().boolValue());
}

TEST(SharedTransferRecords, TwoSharedFoldersWithTheSameFileIdGiveTwoRecordsInReplyOrder)
{
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(platform::readJson(R"({
        "SharedfoldersWithStatus": [{"FileID": "5", "SharedStatus": "A"}, {"FileID": "5", "SharedStatus": "B"}]
    })"));
    ASSERT_EQ(reply.SharedfoldersWithStatusArray.size(), 2u);
    EXPECT_EQ(reply.SharedfoldersWithStatusArray[0].fileId, Value("5"));
    EXPECT_EQ(reply.SharedfoldersWithStatusArray[0].sharedStatus, Value("A"));
    EXPECT_EQ(reply.SharedfoldersWithStatusArray[1].fileId, Value("5"));
    EXPECT_EQ(reply.SharedfoldersWithStatusArray[1].sharedStatus, Value("B"));
}

TEST(SharedTransferRecords, MemberPresentButEmptyGivesAnEmptyList)
{
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(
        platform::readJson(R"({"FileToTransfer": [], "OwnerComputers": []})"));
    EXPECT_TRUE(reply.fileToTransferArray.empty());
    EXPECT_TRUE(reply.OwnerComputersArray.empty());
    EXPECT_FALSE(reply.ReturnStatus.has_value());
}

TEST(SharedTransferRecords, MissingKeyInAnElementLeavesOnlyThatFieldAbsent)
{
    const auto reply = DataParser::parseGetSharedFilesTransferDataResponseData(
        platform::readJson(R"({"OwnerComputers": [{"MailID": "a@b", "Status": null}]})"));
    ASSERT_EQ(reply.OwnerComputersArray.size(), 1u);
    const auto& owner = reply.OwnerComputersArray[0];
    EXPECT_EQ(owner.mailId, Value("a@b"));
    ASSERT_TRUE(owner.status.has_value());
    EXPECT_TRUE(owner.status->isNull());
    EXPECT_FALSE(owner.userId.has_value());
    EXPECT_FALSE(owner.error.has_value());
}
