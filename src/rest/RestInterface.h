#pragma once

// RestInterface: the one door through which the service talks to the REST web service. One class operation per
// server method (39), each taking a request record and a completion callback: it encodes the record (QueryParser),
// picks the transport by OS version (RestConnector_Old on 10.7 to 10.9, RestConnector otherwise), posts the JSON to
// the method's path and, on the transport's completion, decodes the reply (DataParser) and hands the record to the
// callback with status 0, or hands the transport's object and status on unchanged (FacadeCompletion.h). Paths,
// encoders and decoders come from the table of server methods (messages/Operations.h).
//
// The callback runs where the transport calls it: on the main queue (RestConnector), on the request's own
// operation queue (RestConnector_Old), or at once on the calling thread for the failures found before sending
// (network not reachable, record not writable as JSON). A caller that waits on the main thread must keep the main
// queue running.
//
// Departures from the common pattern, kept as they are:
// - asyncSyncFilesInTableAndCloud sends the encoded dictionary's "syncData" array, not the dictionary;
// - some operations log the encoded dictionary, and two log more around their callback;
// - the two stream operations use RestConnector's stream transfers, and only from 10.10 on: on 10.7 to 10.9 they
//   do nothing at all, and their callback is never called;
// - asyncGetTopFileUploadWithStream's callback takes (HTTP response, reply body, 0) unchanged, or (nothing,
//   nothing, status);
// - the path of asyncupdateBSDownloadStreamFailed ends with U+FFFC, which makes no URL: the request goes out
//   without one and fails with the HTTP layer's bad-URL error (-1000), status 2; the server method is never reached.

#include "messages/Queries.h"
#include "messages/Responses.h"
#include "messages/SharedTransfer.h"
#include "rest/FacadeCompletion.h"
#include "rest/JsonRequest.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace rest {

class RestInterface {
public:
    RestInterface() = delete;

    // AppKit release number (platform::appKitVersionNumber), rounded down, at least 1138 and below 1343: OS 10.7 to
    // 10.9. Older systems answer no and take the current transport, as 10.10 does.
    static bool isLessThan10_10();

    static void asyncUserRegistration(const messages::UserRegistrationQuery& query,
        CompletionHandler<messages::UserRegistrationResponseData> withCompletionHandler);
    static void asyncRegisterComputer(const messages::RegisterComputerQuery& query,
        CompletionHandler<messages::RegisterComputerResponseData> withCompletionHandler);
    static void asyncSendActivationMail(const messages::SendActivationMailQuery& query,
        CompletionHandler<messages::SendActivationMailResponseData> withCompletionHandler);
    static void asyncOneTimeSyncOwnersSharedFolders(const messages::OneTimeSyncOwnersSharedFoldersQuery& query,
        CompletionHandler<messages::OneTimeSyncOwnersSharedFoldersResponseData> withCompletionHandler);
    static void asyncTransferFilesFromCloudToBaseSystem(const messages::TransferFilesFromCloudToBaseSystemQuery& query,
        CompletionHandler<messages::TransferFilesFromCloudToBaseSystemResponseData> withCompletionHandler);
    static void asyncGetTopFileUpload(const messages::GetTopFileUploadQuery& query,
        CompletionHandler<messages::GetTopFileUploadResponseData> withCompletionHandler);
    static void asyncCheckUserMailActivationStatus(const messages::CheckUserMailActivationStatusQuery& query,
        CompletionHandler<messages::CheckUserMailActivationStatusResponseData> withCompletionHandler);
    static void asyncUpdateFileUpload(const messages::UpdateFileUploadQuery& query,
        CompletionHandler<messages::UpdateFileUploadResponseData> withCompletionHandler);
    static void asyncGetTopFileRequest(const messages::GetTopFileRequestQuery& query,
        CompletionHandler<messages::GetTopFileRequestResponseData> withCompletionHandler);
    static void asyncUpdateFileRequest(const messages::UpdateFileRequestQuery& query,
        CompletionHandler<messages::UpdateFileRequestResponseData> withCompletionHandler);
    static void asyncSyncFilesInTableAndCloud(const std::vector<messages::SyncFilesInTableAndCloudQuery>& query,
        CompletionHandler<std::vector<messages::SyncFilesInTableAndCloudResponseData>> withCompletionHandler);
    // The same request in two steps, for a long list: the body written while the records are made one at a time by
    // `recordAt` (what it raises goes to the caller, and nothing is sent), so that neither the records nor their
    // dictionaries exist whole; then the body sent, moved and never copied on its way to the HTTP layer.
    static JsonBody syncFilesInTableAndCloudBody(
        std::size_t count, const std::function<messages::SyncFilesInTableAndCloudQuery(std::size_t)>& recordAt);
    static void asyncSyncFilesInTableAndCloudWithBody(JsonBody body,
        CompletionHandler<std::vector<messages::SyncFilesInTableAndCloudResponseData>> withCompletionHandler);
    static void asyncUpdateComputerStatus(const messages::UpdateComputerStatusQuery& query,
        CompletionHandler<messages::UpdateComputerStatusResponseData> withCompletionHandler);
    static void asyncOneTimeSyncFiles(const messages::OneTimeSyncFilesQuery& query,
        CompletionHandler<messages::OneTimeSyncFilesResponseData> withCompletionHandler);
    static void asyncSendPasswordToMailId(const messages::SendPasswordToMailIdQuery& query,
        CompletionHandler<messages::SendPasswordToMailIdResponseData> withCompiletionHandler);
    static void asyncGetTopFileUploadWithStream(
        const messages::GetTopFileUploadQuery& query, StreamFinished withCompletionHandler);
    static void asyncUpdateFileRequestWithStream(const messages::UpdateFileRequestQuery& query,
        CompletionHandler<messages::UpdateFileRequestResponseData> withCompletionHandler);
    static void asyncLogError(
        const messages::LogErrorQuery& query, CompletionHandler<messages::LogErrorResponseData> withCompiletionHandler);
    static void asyncGetSharedFilesTransferData(const messages::GetSharedFilesTransferDataQuery& query,
        CompletionHandler<messages::GetSharedFilesTransferDataResponseData> withCompletionHandler);
    static void asyncUpdateFileExist(const messages::UpdateFileExistQuery& query,
        CompletionHandler<messages::UpdateFileExistResponseData> withCompletionHandler);
    static void asyncUpdateFileSendReceived(const messages::UpdateFileSendReceivedQuery& query,
        CompletionHandler<messages::UpdateFileSendReceivedResponseData> withCompletionHandler);
    static void asyncUploadFileWithStream(const messages::UploadFileWithStreamQuery& query,
        CompletionHandler<messages::ReplyValue> withCompletionHandler);
    static void asyncupdateSendFileToTransfer(const messages::UpdateSendFileToTransferQuery& query,
        CompletionHandler<messages::ReplyValue> withcompletionHandler);
    static void asyncIsFileExistsInCloud(const messages::IsFileExistsInCloudQuery& query,
        CompletionHandler<messages::IsFileExistsInCloudResponseData> withCompiletionHandler);
    static void asyncUpdateFileReceived(const messages::UpdateFileReceivedQuery& query,
        CompletionHandler<messages::UpdateFileReceivedResponseData> withCompiletionHandler);
    static void asyncDeleteReceivedFileFromTransfer(const messages::DeleteReceivedFileFromTransferQuery& query,
        CompletionHandler<messages::DeleteReceivedFileFromTransferResponseData> withCompiletionHandler);
    static void asyncInsertFile(const messages::InsertFileQuery& query,
        CompletionHandler<messages::InsertFileResponseData> withCompletionHandler);
    static void asyncInsertSharedFilesTransfer(const messages::InsertSharedFilesTransferQuery& query,
        CompletionHandler<messages::InsertSharedFilesTransferResponseData> withCompletionHandler);
    static void asyncupdateBSUploadStreamStart(const messages::UpdateBSUploadStreamStartedQuery& query,
        CompletionHandler<messages::UpdateBSUploadStreamStartedResponseData> withCompletionHandler);
    static void asyncCheckFileExistsInDownloads(const messages::CheckFileExistsInDownloadsQuery& query,
        CompletionHandler<messages::CheckFileExistsInDownloadsResponseData> withCompletionhandler);
    static void asyncUpdateBSUploadStreamFailed(const messages::UpdateBSUploadStreamFailedQuery& query,
        CompletionHandler<messages::UpdateBSUploadStreamFailedResponseData> withCompletionHandler);
    static void asyncCheckFileExistsInTransfers(const messages::CheckFileExistsInTransfersQuery& query,
        CompletionHandler<messages::CheckFileExistsInTransfersResponseData> withCompletionhandler);
    static void asyncUpdateBSSendStreamStarted(const messages::UpdateBSSendStreamStartedQuery& query,
        CompletionHandler<messages::UpdateBSSendStreamStartedResponseData> withCompletionHandler);
    static void asyncUpdateBSSendStreamFailed(const messages::UpdateBSSendStreamFailedQuery& query,
        CompletionHandler<messages::UpdateBSSendStreamFailedResponseData> withCompletionHandler);
    static void asyncUpdateBSReceiveStreamStart(const messages::UpdateBSReceiveStreamStartedQuery& query,
        CompletionHandler<messages::UpdateBSReceiveStreamStartedResponseData> withCompletionHandler);
    static void asyncUpdateBSReceiveStreamfailed(const messages::UpdateBSReceiveStreamFailedQuery& query,
        CompletionHandler<messages::UpdateBSReceiveStreamFailedResponseData> withCompletionHandler);
    static void asyncupdateBSDownloadStreamStart(const messages::UpdateBSDownloadStreamStartedQuery& query,
        CompletionHandler<messages::UpdateBSDownloadStreamStartedResponseData> withCompletionHandler);
    static void asyncupdateBSDownloadStreamFailed(const messages::UpdateBSDownloadStreamFailedQuery& query,
        CompletionHandler<messages::UpdateBSDownloadStreamFailedResponseData> withCompletionHandler);
    static void asyncGetTopFileDeleteRequest(const messages::GetTopFileDeleteRequestQuery& query,
        CompletionHandler<messages::GetTopFileDeleteResponseData> withCompletionHandler);
    static void asyncUpdateBSFileDeleted(const messages::UpdateBSFileDeletedQuery& query,
        CompletionHandler<messages::UpdateBSFileDeleteResponseData> withCompletionHandler);
};

}
