#include "messages/Operations.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>
#include <vector>

using namespace messages;

namespace {

// Finds the server method of `selector` in the table and expects it to carry this path, this encoder over this
// request record, this decoder giving this reply record, and this transport. Naming the encoder and decoder here
// with the record types spelled out makes the compiler check that both exist and take and give those records.
template<typename Query, typename Response>
void expectOperation(std::string_view selector, std::string_view path,
    platform::Value (*encoder)(const std::optional<Query>&), Response (*decoder)(const ReplyValue&),
    Transport transport)
{
    SCOPED_TRACE(selector);
    int found = 0;
    forEachOperation([&](const auto& operation) {
        if (operation.selector != selector)
            return;
        ++found;
        if constexpr (std::is_same_v<std::decay_t<decltype(operation)>, Operation<Query, Response>>) {
            EXPECT_EQ(operation.path, path);
            EXPECT_EQ(operation.encoder, encoder);
            EXPECT_EQ(operation.decoder, decoder);
            EXPECT_EQ(operation.transport, transport);
        } else {
            ADD_FAILURE() << "the table gives this method other request or reply records";
        }
    });
    EXPECT_EQ(found, 1);
}

}

TEST(ServerMethods, EachOfTheThirtyNineMethodsHasItsPathEncoderDecoderAndRecords)
{
    expectOperation<UserRegistrationQuery, UserRegistrationResponseData>(
        "asyncUserRegistration:withCompletionHandler:",
        "Registration.svc/VerifyAndRegisterUserFromTool",
        &QueryParser::parseUserRegistrationQuery,
        &DataParser::parseUserRegistrationReponseData,
        Transport::Task);
    expectOperation<RegisterComputerQuery, RegisterComputerResponseData>(
        "asyncRegisterComputer:withCompletionHandler:",
        "Registration.svc/RegisterComputer",
        &QueryParser::parseRegisterComputerQuery,
        &DataParser::parseRegisterComputerResponseData,
        Transport::Task);
    expectOperation<SendActivationMailQuery, SendActivationMailResponseData>(
        "asyncSendActivationMail:withCompletionHandler:",
        "Registration.svc/SendActivationMail",
        &QueryParser::parseSendActivationMailQuery,
        &DataParser::parseSendActivationMailResponseData,
        Transport::Task);
    expectOperation<OneTimeSyncOwnersSharedFoldersQuery, OneTimeSyncOwnersSharedFoldersResponseData>(
        "asyncOneTimeSyncOwnersSharedFolders:withCompletionHandler:",
        "Registration.svc/OneTimeSyncOwnersSharedFolders",
        &QueryParser::parseOneTimeSyncOwnersSharedFoldersQuery,
        &DataParser::parseOneTimeSyncOwnersSharedFoldersResponseData,
        Transport::Task);
    expectOperation<TransferFilesFromCloudToBaseSystemQuery, TransferFilesFromCloudToBaseSystemResponseData>(
        "asyncTransferFilesFromCloudToBaseSystem:withCompletionHandler:",
        "Registration.svc/TransferFilesFromCloudToBaseSystem",
        &QueryParser::parseTransferFilesFromColudToBaseSystemQuery,
        &DataParser::parseTransferFilesFromCloudToBaseSystemResponseData,
        Transport::Task);
    expectOperation<GetTopFileUploadQuery, GetTopFileUploadResponseData>(
        "asyncGetTopFileUpload:withCompletionHandler:",
        "Uploads.svc/GetTopFileUpload",
        &QueryParser::parseGetTopFileUploadQuery,
        &DataParser::parseGetTopFileUploadResponseData,
        Transport::Task);
    expectOperation<CheckUserMailActivationStatusQuery, CheckUserMailActivationStatusResponseData>(
        "asyncCheckUserMailActivationStatus:withCompletionHandler:",
        "Registration.svc/CheckUserMailActivationStatus",
        &QueryParser::parseCheckUserMailActivationStatusQuery,
        &DataParser::parseCheckUserMailActivationStatusResponseData,
        Transport::Task);
    expectOperation<UpdateFileUploadQuery, UpdateFileUploadResponseData>(
        "asyncUpdateFileUpload:withCompletionHandler:",
        "Uploads.svc/UpdateFileUpload",
        &QueryParser::parseUpdateFileUploadQuery,
        &DataParser::parseUpdateFileUploadResponseData,
        Transport::Task);
    expectOperation<GetTopFileRequestQuery, GetTopFileRequestResponseData>(
        "asyncGetTopFileRequest:withCompletionHandler:",
        "Downloads.svc/GetTopFileRequest",
        &QueryParser::parsegetTopFileRequestQuery,
        &DataParser::parseGetTopFileRequestResponseData,
        Transport::Task);
    expectOperation<UpdateFileRequestQuery, UpdateFileRequestResponseData>(
        "asyncUpdateFileRequest:withCompletionHandler:",
        "Downloads.svc/UpdateFileRequest",
        &QueryParser::parseUpdateFileRequestQuery,
        &DataParser::parseUpdateFileRequestResponseData,
        Transport::Task);
    expectOperation<std::vector<SyncFilesInTableAndCloudQuery>, std::vector<SyncFilesInTableAndCloudResponseData>>(
        "asyncSyncFilesInTableAndCloud:withCompletionHandler:",
        "SyncFileChanges.svc/SyncFilesInTableAndCloud",
        &QueryParser::parseSyncFilesInTableAndCloudQuery,
        &DataParser::parseSyncFilesInTableAndCloudResponseData,
        Transport::Task);
    expectOperation<UpdateComputerStatusQuery, UpdateComputerStatusResponseData>(
        "asyncUpdateComputerStatus:withCompletionHandler:",
        "UpdateSystemTime.svc/UpdateComputerStatus",
        &QueryParser::parseUpdateComputerStatusQuery,
        &DataParser::parseUpdateComputerStatusResponseData,
        Transport::Task);
    expectOperation<OneTimeSyncFilesQuery, OneTimeSyncFilesResponseData>(
        "asyncOneTimeSyncFiles:withCompletionHandler:",
        "Registration.svc/OneTimeSyncFiles",
        &QueryParser::parseOneTimeSyncFilesQuery,
        &DataParser::parseOneTimeSyncFilesResponseData,
        Transport::Task);
    expectOperation<SendPasswordToMailIdQuery, SendPasswordToMailIdResponseData>(
        "asyncSendPasswordToMailId:withCompiletionHandler:",
        "Registration.svc/SendPasswordToMailID",
        &QueryParser::parseSendPasswordToMailIdQuery,
        &DataParser::parseSendPasswordToMailIdResponseData,
        Transport::Task);
    expectOperation<GetTopFileUploadQuery, StreamedReply>(
        "asyncGetTopFileUploadWithStream:withCompletionHandler:",
        "Uploads.svc/GetTopFileUploadWithStream",
        &QueryParser::parseGetTopFileUploadQuery,
        nullptr,
        Transport::StreamDownload);
    expectOperation<UpdateFileRequestQuery, UpdateFileRequestResponseData>(
        "asyncUpdateFileRequestWithStream:withCompletionHandler:",
        "Downloads.svc/UpdateFileRequestWithStream",
        &QueryParser::parseUpdateFileRequestQuery,
        &DataParser::parseUpdateFileRequestResponseData,
        Transport::StreamUpload);
    expectOperation<LogErrorQuery, LogErrorResponseData>(
        "asyncLogError:withCompiletionHandler:",
        "MAC/ErrorLog.svc/LogError",
        &QueryParser::parseLogErrorQuery,
        &DataParser::parseLogErrorResponseData,
        Transport::Task);
    expectOperation<GetSharedFilesTransferDataQuery, GetSharedFilesTransferDataResponseData>(
        "asyncGetSharedFilesTransferData:withCompletionHandler:",
        "MAC/SharedFiles.svc/GetSharedFilesTransferData",
        &QueryParser::parseGetSharedFilesTransferDataQuery,
        &DataParser::parseGetSharedFilesTransferDataResponseData,
        Transport::Task);
    expectOperation<UpdateFileExistQuery, UpdateFileExistResponseData>(
        "asyncUpdateFileExist:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateFileExists",
        &QueryParser::parseUpdateFileExistDataQuery,
        &DataParser::parseUpdateFileExistResponseData,
        Transport::Task);
    expectOperation<UpdateFileSendReceivedQuery, UpdateFileSendReceivedResponseData>(
        "asyncUpdateFileSendReceived:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateFileSendReceived",
        &QueryParser::parseUpdateFileSendReceivedQuery,
        &DataParser::parseUpdateFileSendReceivedResponseData,
        Transport::Task);
    expectOperation<UploadFileWithStreamQuery, ReplyValue>(
        "asyncUploadFileWithStream:withCompletionHandler:",
        "MAC/SharedFiles.svc/UploadFileWithStream",
        &QueryParser::parseUploadWithStreamQuery,
        &DataParser::parseUploadFileWithStreamResponseData,
        Transport::Task);
    expectOperation<UpdateSendFileToTransferQuery, ReplyValue>(
        "asyncupdateSendFileToTransfer:withcompletionHandler:",
        "MAC/SharedFiles.svc/UpdateSendFileToTransfer",
        &QueryParser::parseUpdateSendFileToTransferQuery,
        &DataParser::parseUpdateSendFileToTransferResponseData,
        Transport::Task);
    expectOperation<IsFileExistsInCloudQuery, IsFileExistsInCloudResponseData>(
        "asyncIsFileExistsInCloud:withCompiletionHandler:",
        "MAC/SharedFiles.svc/IsFileExistsInCloud",
        &QueryParser::parseIsFileExistsInCloudQuery,
        &DataParser::parseIsFileExistsInCloudResponseData,
        Transport::Task);
    expectOperation<UpdateFileReceivedQuery, UpdateFileReceivedResponseData>(
        "asyncUpdateFileReceived:withCompiletionHandler:",
        "MAC/SharedFiles.svc/UpdateFileReceived",
        &QueryParser::parseUpdateFileReceivedQuery,
        &DataParser::parseUpdateFileReceivedResponseData,
        Transport::Task);
    expectOperation<DeleteReceivedFileFromTransferQuery, DeleteReceivedFileFromTransferResponseData>(
        "asyncDeleteReceivedFileFromTransfer:withCompiletionHandler:",
        "MAC/SharedFiles.svc/DeleteReceivedFileFromTransfer",
        &QueryParser::parseDeleteReceivedFileFromTransferQuery,
        &DataParser::parseDeleteReceivedFileFromTransferResponseData,
        Transport::Task);
    expectOperation<InsertFileQuery, InsertFileResponseData>(
        "asyncInsertFile:withCompletionHandler:",
        "SyncFileChanges.svc/InsertFile",
        &QueryParser::parseInsertFileQuery,
        &DataParser::parseInsertFileResponseData,
        Transport::Task);
    expectOperation<InsertSharedFilesTransferQuery, InsertSharedFilesTransferResponseData>(
        "asyncInsertSharedFilesTransfer:withCompletionHandler:",
        "SyncFileChanges.svc/InsertSharedFilesTransfer",
        &QueryParser::parseInsertSharedFilesTransferQuery,
        &DataParser::parseInsertSharedFilesTransferResponseData,
        Transport::Task);
    expectOperation<UpdateBSUploadStreamStartedQuery, UpdateBSUploadStreamStartedResponseData>(
        "asyncupdateBSUploadStreamStart:withCompletionHandler:",
        "Uploads.svc/UpdateBSUploadStreamStarted",
        &QueryParser::parseUpdateBSUploadStreamStartedQuery,
        &DataParser::parseUpdateBSUploadStreamStartedResponseData,
        Transport::Task);
    expectOperation<CheckFileExistsInDownloadsQuery, CheckFileExistsInDownloadsResponseData>(
        "asyncCheckFileExistsInDownloads:withCompletionhandler:",
        "Downloads.svc/CheckFileExistsInDownloads",
        &QueryParser::parseCheckFileExistsInDownloadsQuery,
        &DataParser::parseCheckFileExistsInDownloadsResponseData,
        Transport::Task);
    expectOperation<UpdateBSUploadStreamFailedQuery, UpdateBSUploadStreamFailedResponseData>(
        "asyncUpdateBSUploadStreamFailed:withCompletionHandler:",
        "Uploads.svc/UpdateBSUploadStreamFailed",
        &QueryParser::parseUpdateBSUploadStreamFailedQuery,
        &DataParser::parseUpdateBSUploadStreamFailedResponseData,
        Transport::Task);
    expectOperation<CheckFileExistsInTransfersQuery, CheckFileExistsInTransfersResponseData>(
        "asyncCheckFileExistsInTransfers:withCompletionhandler:",
        "MAC/SharedFiles.svc/CheckFileExistsInTransfers",
        &QueryParser::parseCheckFileExistsInTransfersQuery,
        &DataParser::parseCheckFileExistsInTransfersResponseData,
        Transport::Task);
    expectOperation<UpdateBSSendStreamStartedQuery, UpdateBSSendStreamStartedResponseData>(
        "asyncUpdateBSSendStreamStarted:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateBSSendStreamStarted",
        &QueryParser::parseUpdateBSSendStreamStartedQuery,
        &DataParser::parseUpdateBSSendStreamstartedResponseData,
        Transport::Task);
    expectOperation<UpdateBSSendStreamFailedQuery, UpdateBSSendStreamFailedResponseData>(
        "asyncUpdateBSSendStreamFailed:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateBSSendStreamFailed",
        &QueryParser::parseUpdateBSSendStreamFailedQuery,
        &DataParser::parseUpdateBSSendStreamFailedResponseData,
        Transport::Task);
    expectOperation<UpdateBSReceiveStreamStartedQuery, UpdateBSReceiveStreamStartedResponseData>(
        "asyncUpdateBSReceiveStreamStart:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateBSReceiveStreamStarted",
        &QueryParser::parseUpdateBSReceiveStreamStartedQuery,
        &DataParser::parseUpdateBSReceiveStreamStartedResponseData,
        Transport::Task);
    expectOperation<UpdateBSReceiveStreamFailedQuery, UpdateBSReceiveStreamFailedResponseData>(
        "asyncUpdateBSReceiveStreamfailed:withCompletionHandler:",
        "MAC/SharedFiles.svc/UpdateBSReceiveStreamFailed",
        &QueryParser::parseUpdateBSReceiveStreamFailedQuery,
        &DataParser::parseUpdateBSReceiveStreamFailedResponseData,
        Transport::Task);
    expectOperation<UpdateBSDownloadStreamStartedQuery, UpdateBSDownloadStreamStartedResponseData>(
        "asyncupdateBSDownloadStreamStart:withCompletionHandler:",
        "Downloads.svc/UpdateBSDownloadStreamStarted",
        &QueryParser::parseUpdateBSDownloadStreamStartedQuery,
        &DataParser::parseUpdateBSDownloadStreamStartedResponseData,
        Transport::Task);
    expectOperation<UpdateBSDownloadStreamFailedQuery, UpdateBSDownloadStreamFailedResponseData>(
        "asyncupdateBSDownloadStreamFailed:withCompletionHandler:",
        "Downloads.svc/UpdateBSDownloadStreamFailed\xEF\xBF\xBC",
        &QueryParser::parseUpdateBSDownloadStreamFailedQuery,
        &DataParser::parseUpdateBSDownloadStreamFailedResponseData,
        Transport::Task);
    expectOperation<GetTopFileDeleteRequestQuery, GetTopFileDeleteResponseData>(
        "asyncGetTopFileDeleteRequest:withCompletionHandler:",
        "Downloads.svc/GetTopFileDeleteRequest",
        &QueryParser::parseGetTopFileDeleteRequestQuery,
        &DataParser::parseGetTopFileResponseData,
        Transport::Task);
    expectOperation<UpdateBSFileDeletedQuery, UpdateBSFileDeleteResponseData>(
        "asyncUpdateBSFileDeleted:withCompletionHandler:",
        "Downloads.svc/UpdateBSFileDeleted",
        &QueryParser::parseUpdateBSFileDeletedQuery,
        &DataParser::parseUpdateBSFileDeleteResponseData,
        Transport::Task);
}

TEST(ServerMethods, TableHoldsThirtyNineMethodsWithDistinctSelectorsAndPaths)
{
    EXPECT_EQ(std::tuple_size_v<std::decay_t<decltype(allOperations)>>, 39u);
    std::set<std::string_view> selectors;
    std::set<std::string_view> paths;
    forEachOperation([&](const auto& operation) {
        selectors.insert(operation.selector);
        paths.insert(operation.path);
    });
    EXPECT_EQ(selectors.size(), 39u);
    EXPECT_EQ(paths.size(), 39u);
}

TEST(ServerMethods, TwoMethodsShareAnEncoderWithTheirStreamForms)
{
    EXPECT_EQ(operations::asyncGetTopFileUpload.encoder, operations::asyncGetTopFileUploadWithStream.encoder);
    EXPECT_EQ(operations::asyncUpdateFileRequest.encoder, operations::asyncUpdateFileRequestWithStream.encoder);
    EXPECT_EQ(operations::asyncUpdateFileRequest.decoder, operations::asyncUpdateFileRequestWithStream.decoder);
}

TEST(ServerMethods, StreamDownloadHasNoDecoder)
{
    EXPECT_EQ(operations::asyncGetTopFileUploadWithStream.decoder, nullptr);
}

TEST(ServerMethods, DownloadStreamFailedPathEndsWithTheObjectReplacementCharacter)
{
    const std::string_view path = operations::asyncupdateBSDownloadStreamFailed.path;
    EXPECT_EQ(path, "Downloads.svc/UpdateBSDownloadStreamFailed\xEF\xBF\xBC");
    EXPECT_NE(path, "Downloads.svc/UpdateBSDownloadStreamFailed");
}

TEST(ServerMethods, EveryPathLiesUnderOneOfTheSevenServiceFolders)
{
    const std::vector<std::string_view> folders { "Registration.svc/", "Uploads.svc/", "Downloads.svc/",
        "SyncFileChanges.svc/", "UpdateSystemTime.svc/", "MAC/ErrorLog.svc/", "MAC/SharedFiles.svc/" };
    forEachOperation([&](const auto& operation) {
        bool under = false;
        for (const auto folder : folders)
            under = under || operation.path.starts_with(folder);
        EXPECT_TRUE(under) << operation.path;
    });
}
