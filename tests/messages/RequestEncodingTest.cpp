#include "ExpectedKeys.h"

#include "messages/QueryParser.h"
#include "platform/Json.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace messages;
using namespace messages::testing;
using platform::Value;

namespace {

// The batch encoder, given one change record: that record's dictionary inside "syncData".
Value encodeOneChange(const SyncFilesInTableAndCloudQuery& change)
{
    return QueryParser::parseSyncFilesInTableAndCloudQuery(std::vector { change }).find("syncData")->at(0);
}

}

TEST(RequestEncoding, EveryRequestRecordWithAllPropertiesSetEncodesToExactlyItsKeys)
{
    expectKeys("UserRegistrationQuery", QueryParser::parseUserRegistrationQuery, {
        { "MailID", &UserRegistrationQuery::mailId },
        { "Password", &UserRegistrationQuery::passWord },
        { "FirstName", &UserRegistrationQuery::firstName },
        { "LastName", &UserRegistrationQuery::lastName },
        { "NickName", &UserRegistrationQuery::nickName },
    });
    expectKeys("RegisterComputerQuery", QueryParser::parseRegisterComputerQuery, {
        { "UserID", &RegisterComputerQuery::userId },
        { "KorbanholdPath", &RegisterComputerQuery::korbanholdPath },
    });
    expectKeys("SendActivationMailQuery", QueryParser::parseSendActivationMailQuery, {
        { "MailID", &SendActivationMailQuery::mailId },
        { "UserID", &SendActivationMailQuery::userId },
    });
    expectKeys("OneTimeSyncOwnersSharedFoldersQuery", QueryParser::parseOneTimeSyncOwnersSharedFoldersQuery, {
        { "ComputerID", &OneTimeSyncOwnersSharedFoldersQuery::computerId },
        { "UserID", &OneTimeSyncOwnersSharedFoldersQuery::userId },
    });
    expectKeys("GetTopFileUploadQuery", QueryParser::parseGetTopFileUploadQuery, {
        { "ToComputerID", &GetTopFileUploadQuery::toComputerId },
    });
    expectKeys("CheckUserMailActivationStatusQuery", QueryParser::parseCheckUserMailActivationStatusQuery, {
        { "UserID", &CheckUserMailActivationStatusQuery::userId },
    });
    expectKeys("UpdateFileUploadQuery", QueryParser::parseUpdateFileUploadQuery, {
        { "FileUploadID", &UpdateFileUploadQuery::fileUploadId },
        { "FileName", &UpdateFileUploadQuery::fileName },
        { "ServerPath", &UpdateFileUploadQuery::serverPath },
        { "TransitUploadPath", &UpdateFileUploadQuery::transitUploadPath },
    });
    expectKeys("GetTopFileRequestQuery", QueryParser::parsegetTopFileRequestQuery, {
        { "FromComputerID", &GetTopFileRequestQuery::fromComputerID },
    });
    expectKeys("UpdateFileRequestQuery", QueryParser::parseUpdateFileRequestQuery, {
        { "FilePath", &UpdateFileRequestQuery::filePath },
        { "FileRequestID", &UpdateFileRequestQuery::fileRequestId },
        { "TransitDownloadPath", &UpdateFileRequestQuery::transitDownloadPath },
        { "Attachment", &UpdateFileRequestQuery::attachment },
    });
    expectEncodedKeys<SyncFilesInTableAndCloudQuery>("SyncFilesInTableAndCloudQuery", encodeOneChange, {
        { "ChangeType", &SyncFilesInTableAndCloudQuery::changeType },
        { "OldFullPath", &SyncFilesInTableAndCloudQuery::oldFullPath },
        { "FullPath", &SyncFilesInTableAndCloudQuery::fullPath },
        { "FileSize", &SyncFilesInTableAndCloudQuery::fileSize },
        { "KorbanholdPath", &SyncFilesInTableAndCloudQuery::korbanholdPath },
        { "IsFile", &SyncFilesInTableAndCloudQuery::isFile },
        { "ComputerID", &SyncFilesInTableAndCloudQuery::computerId },
        { "FileModifiedDate", &SyncFilesInTableAndCloudQuery::fileModifiedDate },
        { "BaseSystemFileID", &SyncFilesInTableAndCloudQuery::baseSystemFileID },
        { "FileID", &SyncFilesInTableAndCloudQuery::fileID },
    });
    expectKeys("UpdateComputerStatusQuery", QueryParser::parseUpdateComputerStatusQuery, {
        { "ComputerID", &UpdateComputerStatusQuery::computerId },
        { "DateTime", &UpdateComputerStatusQuery::dateTime },
        { "VersionNumber", &UpdateComputerStatusQuery::versionNumber },
    });
    expectKeys("OneTimeSyncFilesQuery", QueryParser::parseOneTimeSyncFilesQuery, {
        { "AllFiles", &OneTimeSyncFilesQuery::allFiles },
        { "ComputerID", &OneTimeSyncFilesQuery::computerId },
        { "KorbanholdPath", &OneTimeSyncFilesQuery::korbanholdPath },
    });
    expectKeys("TransferFilesFromCloudToBaseSystemQuery", QueryParser::parseTransferFilesFromColudToBaseSystemQuery, {
        { "ComputerID", &TransferFilesFromCloudToBaseSystemQuery::computerID },
        { "KorbanholdPath", &TransferFilesFromCloudToBaseSystemQuery::korbanholdPath },
    });
    expectKeys("SendPasswordToMailIdQuery", QueryParser::parseSendPasswordToMailIdQuery, {
        { "MailID", &SendPasswordToMailIdQuery::mailId },
    });
    expectKeys("LogErrorQuery", QueryParser::parseLogErrorQuery, {
        { "ErrorClass", &LogErrorQuery::errorClass },
        { "ErrorMethod", &LogErrorQuery::errorMethod },
        { "ErrorMessage", &LogErrorQuery::errorMessage },
        { "ComputerID", &LogErrorQuery::computerId },
        { "UserID", &LogErrorQuery::userId },
    });
    expectKeys("GetSharedFilesTransferDataQuery", QueryParser::parseGetSharedFilesTransferDataQuery, {
        { "UserID", &GetSharedFilesTransferDataQuery::userId },
        { "ComputerID", &GetSharedFilesTransferDataQuery::computerId },
    });
    expectKeys("UpdateFileExistQuery", QueryParser::parseUpdateFileExistDataQuery, {
        { "SharedFileTransferID", &UpdateFileExistQuery::SharedFileTransferID },
    });
    expectKeys("UpdateFileSendReceivedQuery", QueryParser::parseUpdateFileSendReceivedQuery, {
        { "SharedFileTransferID", &UpdateFileSendReceivedQuery::SharedFileTransferID },
    });
    expectKeys("UploadFileWithStreamQuery", QueryParser::parseUploadWithStreamQuery, {
        { "ComputerID", &UploadFileWithStreamQuery::computerID },
        { "KorbanholdPath", &UploadFileWithStreamQuery::korbanholdPath },
        { "FullPathFromFileTable", &UploadFileWithStreamQuery::fullPathFromFileTable },
    });
    expectKeys("UpdateSendFileToTransferQuery", QueryParser::parseUpdateSendFileToTransferQuery, {
        { "ChangeType", &UpdateSendFileToTransferQuery::ChangeType },
        { "SharedFileTransferID", &UpdateSendFileToTransferQuery::SharedFileTransferID },
        { "FullPathFromFileTable", &UpdateSendFileToTransferQuery::FullPathFromFileTable },
        { "ToCloud", &UpdateSendFileToTransferQuery::ToCloud },
        { "IsFile", &UpdateSendFileToTransferQuery::IsFile },
        { "ToComputerID", &UpdateSendFileToTransferQuery::ToComputerID },
        { "NewFullPath", &UpdateSendFileToTransferQuery::NewFullPath },
        { "OwnerFileID", &UpdateSendFileToTransferQuery::OwnerFileID },
        { "FromComputerID", &UpdateSendFileToTransferQuery::FromComputerID },
        { "KorbanholdPath", &UpdateSendFileToTransferQuery::KorbanholdPath },
        { "FileNameToSend", &UpdateSendFileToTransferQuery::FileNameToSend },
        { "Length", &UpdateSendFileToTransferQuery::Length },
    });
    expectKeys("IsFileExistsInCloudQuery", QueryParser::parseIsFileExistsInCloudQuery, {
        { "StrFullPath", &IsFileExistsInCloudQuery::strFullPath },
    });
    expectKeys("UpdateFileReceivedQuery", QueryParser::parseUpdateFileReceivedQuery, {
        { "SharedFileTransferID", &UpdateFileReceivedQuery::sharedFileTransferID },
        { "IsExists", &UpdateFileReceivedQuery::isFileExists },
    });
    expectKeys("DeleteReceivedFileFromTransferQuery", QueryParser::parseDeleteReceivedFileFromTransferQuery, {
        { "IsExists", &DeleteReceivedFileFromTransferQuery::isFileExists },
        { "SavedFileID", &DeleteReceivedFileFromTransferQuery::savedFileID },
        { "SharedFileTransferID", &DeleteReceivedFileFromTransferQuery::sharedFileTransferID },
    });
    expectKeys("InsertFileQuery", QueryParser::parseInsertFileQuery, {
        { "FullPath", &InsertFileQuery::fullPath },
        { "ComputerID", &InsertFileQuery::computerID },
    });
    expectKeys("InsertSharedFilesTransferQuery", QueryParser::parseInsertSharedFilesTransferQuery, {
        { "FileID", &InsertSharedFilesTransferQuery::fileID },
        { "ComputerID", &InsertSharedFilesTransferQuery::computerID },
        { "UserComputerID", &InsertSharedFilesTransferQuery::userComputerID },
        { "OldFullPath", &InsertSharedFilesTransferQuery::oldFullPath },
        { "FullPath", &InsertSharedFilesTransferQuery::fullPath },
        { "IsFile", &InsertSharedFilesTransferQuery::isFile },
        { "BaseSystemFileID", &InsertSharedFilesTransferQuery::baseSystemFileID },
        { "PrevFolderFileID", &InsertSharedFilesTransferQuery::prevFolderFileID },
        { "ChangeType", &InsertSharedFilesTransferQuery::changeType },
        { "StrXMLFileID", &InsertSharedFilesTransferQuery::StrXMLFileID },
    });
    expectKeys("UpdateBSUploadStreamStartedQuery", QueryParser::parseUpdateBSUploadStreamStartedQuery, {
        { "FileUploadID", &UpdateBSUploadStreamStartedQuery::fileUploadId },
    });
    expectKeys("UpdateBSUploadStreamFailedQuery", QueryParser::parseUpdateBSUploadStreamFailedQuery, {
        { "FileUploadID", &UpdateBSUploadStreamFailedQuery::fileUploadId },
    });
    expectKeys("UpdateBSDownloadStreamStartedQuery", QueryParser::parseUpdateBSDownloadStreamStartedQuery, {
        { "FileRequestID", &UpdateBSDownloadStreamStartedQuery::fileRequestId },
    });
    expectKeys("UpdateBSDownloadStreamFailedQuery", QueryParser::parseUpdateBSDownloadStreamFailedQuery, {
        { "FileRequestID", &UpdateBSDownloadStreamFailedQuery::fileRequestId },
    });
    expectKeys("CheckFileExistsInDownloadsQuery", QueryParser::parseCheckFileExistsInDownloadsQuery, {
        { "FilePath", &CheckFileExistsInDownloadsQuery::filePath },
    });
    expectKeys("CheckFileExistsInTransfersQuery", QueryParser::parseCheckFileExistsInTransfersQuery, {
        { "SharedFileTransferID", &CheckFileExistsInTransfersQuery::sharedFileTransferID },
        { "FullPathfromFileTable", &CheckFileExistsInTransfersQuery::fullPathfromFileTable },
    });
    expectKeys("UpdateBSSendStreamStartedQuery", QueryParser::parseUpdateBSSendStreamStartedQuery, {
        { "SharedFileTransferID", &UpdateBSSendStreamStartedQuery::sharedFileTransferID },
    });
    expectKeys("UpdateBSSendStreamFailedQuery", QueryParser::parseUpdateBSSendStreamFailedQuery, {
        { "SharedFileTransferID", &UpdateBSSendStreamFailedQuery::sharedFileTransferID },
    });
    expectKeys("UpdateBSReceiveStreamStartedQuery", QueryParser::parseUpdateBSReceiveStreamStartedQuery, {
        { "SharedFileTransferID", &UpdateBSReceiveStreamStartedQuery::sharedFileTransferID },
    });
    expectKeys("UpdateBSReceiveStreamFailedQuery", QueryParser::parseUpdateBSReceiveStreamFailedQuery, {
        { "SharedFileTransferID", &UpdateBSReceiveStreamFailedQuery::sharedFileTransferID },
    });
    expectKeys("GetTopFileDeleteRequestQuery", QueryParser::parseGetTopFileDeleteRequestQuery, {
        { "FromComputerID", &GetTopFileDeleteRequestQuery::fromComputerID },
    });
    expectKeys("UpdateBSFileDeletedQuery", QueryParser::parseUpdateBSFileDeletedQuery, {
        { "DeleteRequestID", &UpdateBSFileDeletedQuery::deleteRequestID },
    });
}

// ---------------------------------------------------------------- Encoding rules

TEST(RequestEncoding, TheFileNumberOfASharedRenameTravelsAsAJsonNumber)
{
    InsertSharedFilesTransferQuery query;
    query.baseSystemFileID = Value::unsignedInteger(18446744073709551615u);
    query.changeType = "2";
    const Value sent = platform::readJson(platform::writeJson(QueryParser::parseInsertSharedFilesTransferQuery(query)));
    const Value* number = sent.find("BaseSystemFileID");
    ASSERT_NE(number, nullptr);
    ASSERT_TRUE(number->isNumber()) << number->description();
    EXPECT_EQ(number->number().uint64Value(), 18446744073709551615u);
    EXPECT_EQ(*sent.find("ChangeType"), Value("2"));
}

TEST(RequestEncoding, RegisterComputerWithOnlyTheUserSetSendsUserIdAloneWithoutANullPath)
{
    RegisterComputerQuery query;
    query.userId = "17";
    const Value body = QueryParser::parseRegisterComputerQuery(query);
    EXPECT_EQ(body.keys(), std::vector<std::string> { "UserID" });
    EXPECT_EQ(body.find("KorbanholdPath"), nullptr);
    EXPECT_EQ(platform::writeJson(body), R"({"UserID":"17"})");
}

TEST(RequestEncoding, BatchOfThreeChangesGivesThreeObjectsInBatchOrderWithAtMostTenKeysEach)
{
    std::vector<SyncFilesInTableAndCloudQuery> batch(3);
    batch[0].fullPath = "/a";
    batch[0].changeType = "Created";
    batch[1].fullPath = "/b";
    batch[2].fullPath = "/c";
    batch[2].fileID = "9";
    const Value body = QueryParser::parseSyncFilesInTableAndCloudQuery(batch);
    EXPECT_EQ(body.keys(), std::vector<std::string> { "syncData" });
    const Value& changes = *body.find("syncData");
    ASSERT_TRUE(changes.isArray());
    ASSERT_EQ(changes.count(), 3u);
    EXPECT_EQ(*changes.at(0).find("FullPath"), Value("/a"));
    EXPECT_EQ(*changes.at(1).find("FullPath"), Value("/b"));
    EXPECT_EQ(*changes.at(2).find("FullPath"), Value("/c"));
    EXPECT_EQ(changes.at(0).keys(), (std::vector<std::string> { "ChangeType", "FullPath" }));
    EXPECT_EQ(changes.at(2).keys(), (std::vector<std::string> { "FullPath", "FileID" }));
    for (const Value& change : changes.elements())
        EXPECT_LE(change.count(), 10u);
}

TEST(RequestEncoding, FileReceivedFlagTravelsAsTheTextOneNotAsABoolean)
{
    UpdateFileReceivedQuery query;
    query.isFileExists = "1";
    const Value body = QueryParser::parseUpdateFileReceivedQuery(query);
    ASSERT_NE(body.find("IsExists"), nullptr);
    EXPECT_TRUE(body.find("IsExists")->isString());
    EXPECT_EQ(*body.find("IsExists"), Value("1"));
    EXPECT_EQ(platform::writeJson(body), R"({"IsExists":"1"})");
}

TEST(RequestEncoding, TransferExistenceCheckSpellsFromLowerCaseWhileUploadAndSendSpellItCapitalised)
{
    CheckFileExistsInTransfersQuery check;
    check.fullPathfromFileTable = "/x";
    EXPECT_NE(QueryParser::parseCheckFileExistsInTransfersQuery(check).find("FullPathfromFileTable"), nullptr);
    EXPECT_EQ(QueryParser::parseCheckFileExistsInTransfersQuery(check).find("FullPathFromFileTable"), nullptr);

    UploadFileWithStreamQuery upload;
    upload.fullPathFromFileTable = "/x";
    EXPECT_NE(QueryParser::parseUploadWithStreamQuery(upload).find("FullPathFromFileTable"), nullptr);
    EXPECT_EQ(QueryParser::parseUploadWithStreamQuery(upload).find("FullPathfromFileTable"), nullptr);

    UpdateSendFileToTransferQuery send;
    send.FullPathFromFileTable = "/x";
    EXPECT_NE(QueryParser::parseUpdateSendFileToTransferQuery(send).find("FullPathFromFileTable"), nullptr);
    EXPECT_EQ(QueryParser::parseUpdateSendFileToTransferQuery(send).find("FullPathfromFileTable"), nullptr);
}

TEST(RequestEncoding, KorbanholdPathKeyComesFromLowerCasePropertyMostlyAndFromCapitalisedOneInSendFileToTransfer)
{
    RegisterComputerQuery registration;
    registration.korbanholdPath = "/home/a/Korbanhold";
    EXPECT_EQ(*QueryParser::parseRegisterComputerQuery(registration).find("KorbanholdPath"),
        Value("/home/a/Korbanhold"));

    UpdateSendFileToTransferQuery send;
    send.KorbanholdPath = "/home/b/Korbanhold";
    EXPECT_EQ(*QueryParser::parseUpdateSendFileToTransferQuery(send).find("KorbanholdPath"),
        Value("/home/b/Korbanhold"));
}

TEST(RequestEncoding, AbsentPropertiesLeaveTheirKeysOutNeverNullNorEmptyText)
{
    const Value body = QueryParser::parseLogErrorQuery(LogErrorQuery {});
    EXPECT_TRUE(body.isDictionary());
    EXPECT_EQ(body.count(), 0u);
    EXPECT_EQ(platform::writeJson(body), "{}");
}

TEST(RequestEncoding, EmptyTextIsSentAsItIsWithoutValidation)
{
    LogErrorQuery query;
    query.errorMessage = "";
    query.userId = " 42 ";
    const Value body = QueryParser::parseLogErrorQuery(query);
    EXPECT_EQ(body.keys(), (std::vector<std::string> { "ErrorMessage", "UserID" }));
    EXPECT_EQ(*body.find("ErrorMessage"), Value(""));
    EXPECT_EQ(*body.find("UserID"), Value(" 42 "));
}

TEST(RequestEncoding, AbsentRecordGivesAnObjectWithNoKeys)
{
    const Value body = QueryParser::parseInsertFileQuery(std::nullopt);
    EXPECT_TRUE(body.isDictionary());
    EXPECT_EQ(body.count(), 0u);
}

TEST(RequestEncoding, AbsentOrEmptyBatchGivesSyncDataWithAnEmptyArray)
{
    for (const Value& body : { QueryParser::parseSyncFilesInTableAndCloudQuery(std::nullopt),
             QueryParser::parseSyncFilesInTableAndCloudQuery(std::vector<SyncFilesInTableAndCloudQuery> {}) }) {
        EXPECT_EQ(body.keys(), std::vector<std::string> { "syncData" });
        EXPECT_TRUE(body.find("syncData")->isArray());
        EXPECT_EQ(body.find("syncData")->count(), 0u);
        EXPECT_EQ(platform::writeJson(body), R"({"syncData":[]})");
    }
}

