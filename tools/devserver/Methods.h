#pragma once

// What the server does for each of the service's methods: one function per method, taking the tables and the
// method's request record (decoded by the method table) and giving its reply record. Each runs inside one
// transaction of the store. docs/devserver.md says what each one does.

#include "devserver/Store.h"
#include "messages/Queries.h"
#include "messages/ResponseKeys.h"
#include "messages/Responses.h"
#include "messages/SharedTransfer.h"

#include <string>
#include <string_view>
#include <vector>

namespace devserver {

using namespace messages;

// Registration.svc
UserRegistrationResponseData registerUser(Tables& tables, const UserRegistrationQuery& query);
RegisterComputerResponseData registerComputer(Tables& tables, const RegisterComputerQuery& query);
SendActivationMailResponseData sendActivationMail(Tables& tables, const SendActivationMailQuery& query);
CheckUserMailActivationStatusResponseData checkUserMailActivationStatus(
    Tables& tables, const CheckUserMailActivationStatusQuery& query);
SendPasswordToMailIdResponseData sendPasswordToMailId(Tables& tables, const SendPasswordToMailIdQuery& query);
OneTimeSyncOwnersSharedFoldersResponseData oneTimeSyncOwnersSharedFolders(
    Tables& tables, const OneTimeSyncOwnersSharedFoldersQuery& query);
TransferFilesFromCloudToBaseSystemResponseData transferFilesFromCloudToBaseSystem(
    Tables& tables, const TransferFilesFromCloudToBaseSystemQuery& query);
OneTimeSyncFilesResponseData oneTimeSyncFiles(Tables& tables, const OneTimeSyncFilesQuery& query);

// What computers report: UpdateSystemTime.svc, MAC/ErrorLog.svc and SyncFileChanges.svc
UpdateComputerStatusResponseData updateComputerStatus(Tables& tables, const UpdateComputerStatusQuery& query);
LogErrorResponseData logError(Tables& tables, const LogErrorQuery& query);
std::vector<SyncFilesInTableAndCloudResponseData> syncFilesInTableAndCloud(
    Tables& tables, const std::vector<SyncFilesInTableAndCloudQuery>& changes);
InsertFileResponseData insertFile(Tables& tables, const InsertFileQuery& query);
InsertSharedFilesTransferResponseData insertSharedFilesTransfer(
    Tables& tables, const InsertSharedFilesTransferQuery& query);

// Uploads.svc
GetTopFileUploadResponseData getTopFileUpload(Tables& tables, const GetTopFileUploadQuery& query);
// The stream download: the stored bytes of the upload that getTopFileUpload names.
std::string topFileUploadContent(Tables& tables, const GetTopFileUploadQuery& query);
UpdateBSUploadStreamStartedResponseData updateBSUploadStreamStarted(
    Tables& tables, const UpdateBSUploadStreamStartedQuery& query);
UpdateBSUploadStreamFailedResponseData updateBSUploadStreamFailed(
    Tables& tables, const UpdateBSUploadStreamFailedQuery& query);
UpdateFileUploadResponseData updateFileUpload(Tables& tables, const UpdateFileUploadQuery& query);

// Downloads.svc
GetTopFileRequestResponseData getTopFileRequest(Tables& tables, const GetTopFileRequestQuery& query);
UpdateFileRequestResponseData updateFileRequest(Tables& tables, const UpdateFileRequestQuery& query);
// The stream upload: the request record comes from the request's headers, the file's bytes are the body.
UpdateFileRequestResponseData receiveFileRequestStream(
    Tables& tables, const UpdateFileRequestQuery& query, std::string_view content);
UpdateBSDownloadStreamStartedResponseData updateBSDownloadStreamStarted(
    Tables& tables, const UpdateBSDownloadStreamStartedQuery& query);
UpdateBSDownloadStreamFailedResponseData updateBSDownloadStreamFailed(
    Tables& tables, const UpdateBSDownloadStreamFailedQuery& query);
CheckFileExistsInDownloadsResponseData checkFileExistsInDownloads(
    Tables& tables, const CheckFileExistsInDownloadsQuery& query);
GetTopFileDeleteResponseData getTopFileDeleteRequest(Tables& tables, const GetTopFileDeleteRequestQuery& query);
UpdateBSFileDeleteResponseData updateBSFileDeleted(Tables& tables, const UpdateBSFileDeletedQuery& query);

// MAC/SharedFiles.svc
GetSharedFilesTransferDataResponseData getSharedFilesTransferData(
    Tables& tables, const GetSharedFilesTransferDataQuery& query);
UpdateFileExistResponseData updateFileExist(Tables& tables, const UpdateFileExistQuery& query);
UpdateFileSendReceivedResponseData updateFileSendReceived(Tables& tables, const UpdateFileSendReceivedQuery& query);
BareStatusReply uploadFileWithStream(Tables& tables, const UploadFileWithStreamQuery& query);
BareStatusReply updateSendFileToTransfer(Tables& tables, const UpdateSendFileToTransferQuery& query);
IsFileExistsInCloudResponseData isFileExistsInCloud(Tables& tables, const IsFileExistsInCloudQuery& query);
UpdateFileReceivedResponseData updateFileReceived(Tables& tables, const UpdateFileReceivedQuery& query);
DeleteReceivedFileFromTransferResponseData deleteReceivedFileFromTransfer(
    Tables& tables, const DeleteReceivedFileFromTransferQuery& query);
CheckFileExistsInTransfersResponseData checkFileExistsInTransfers(
    Tables& tables, const CheckFileExistsInTransfersQuery& query);
UpdateBSSendStreamStartedResponseData updateBSSendStreamStarted(
    Tables& tables, const UpdateBSSendStreamStartedQuery& query);
UpdateBSSendStreamFailedResponseData updateBSSendStreamFailed(
    Tables& tables, const UpdateBSSendStreamFailedQuery& query);
UpdateBSReceiveStreamStartedResponseData updateBSReceiveStreamStarted(
    Tables& tables, const UpdateBSReceiveStreamStartedQuery& query);
UpdateBSReceiveStreamFailedResponseData updateBSReceiveStreamFailed(
    Tables& tables, const UpdateBSReceiveStreamFailedQuery& query);

}
