#include "rest/RestInterface.h"

#include "messages/Operations.h"
#include "messages/WireCodec.h"
#include "platform/Log.h"
#include "platform/OsVersion.h"
#include "rest/RestConnector.h"
#include "rest/RestConnector_Old.h"

#include <cmath>
#include <memory>

namespace rest {

namespace operations = messages::operations;

namespace {

// A new transport for one request, by OS version.
std::shared_ptr<JsonTransport> makeTransport()
{
    if (RestInterface::isLessThan10_10())
        return std::make_shared<RestConnector_Old>();
    return std::make_shared<RestConnector>();
}

// The operation's encoding of `query`, logged with `logFormat` when there is one.
template<typename Operation, typename Query>
platform::Value encodeAndLog(const Operation& operation, const Query& query, const char* logFormat)
{
    platform::Value params = operation.encoder(query);
    if (logFormat)
        platform::log(logFormat, params);
    return params;
}

// The common pattern: encode, post to the operation's path on a new transport, decode on success.
template<typename Query, typename Response>
void send(const messages::Operation<Query, Response>& operation, const Query& query,
    CompletionHandler<Response> handler, const char* logFormat = nullptr)
{
    makeTransport()->startAsyncTask(operation.path, encodeAndLog(operation, query, logFormat), {},
        completionStep(operation.decoder, std::move(handler)));
}

}

bool RestInterface::isLessThan10_10()
{
    const double version = std::floor(platform::appKitVersionNumber());
    return version >= 1138.0 && version < 1343.0;
}

void RestInterface::asyncUserRegistration(const messages::UserRegistrationQuery& query,
    CompletionHandler<messages::UserRegistrationResponseData> withCompletionHandler)
{
    send(operations::asyncUserRegistration, query, std::move(withCompletionHandler));
}

void RestInterface::asyncRegisterComputer(const messages::RegisterComputerQuery& query,
    CompletionHandler<messages::RegisterComputerResponseData> withCompletionHandler)
{
    send(operations::asyncRegisterComputer, query, std::move(withCompletionHandler));
}

void RestInterface::asyncSendActivationMail(const messages::SendActivationMailQuery& query,
    CompletionHandler<messages::SendActivationMailResponseData> withCompletionHandler)
{
    send(operations::asyncSendActivationMail, query, std::move(withCompletionHandler));
}

void RestInterface::asyncOneTimeSyncOwnersSharedFolders(const messages::OneTimeSyncOwnersSharedFoldersQuery& query,
    CompletionHandler<messages::OneTimeSyncOwnersSharedFoldersResponseData> withCompletionHandler)
{
    send(operations::asyncOneTimeSyncOwnersSharedFolders, query, std::move(withCompletionHandler));
}

void RestInterface::asyncTransferFilesFromCloudToBaseSystem(
    const messages::TransferFilesFromCloudToBaseSystemQuery& query,
    CompletionHandler<messages::TransferFilesFromCloudToBaseSystemResponseData> withCompletionHandler)
{
    send(operations::asyncTransferFilesFromCloudToBaseSystem, query, std::move(withCompletionHandler));
}

void RestInterface::asyncGetTopFileUpload(const messages::GetTopFileUploadQuery& query,
    CompletionHandler<messages::GetTopFileUploadResponseData> withCompletionHandler)
{
    send(operations::asyncGetTopFileUpload, query, std::move(withCompletionHandler));
}

void RestInterface::asyncCheckUserMailActivationStatus(const messages::CheckUserMailActivationStatusQuery& query,
    CompletionHandler<messages::CheckUserMailActivationStatusResponseData> withCompletionHandler)
{
    send(operations::asyncCheckUserMailActivationStatus, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateFileUpload(const messages::UpdateFileUploadQuery& query,
    CompletionHandler<messages::UpdateFileUploadResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateFileUpload, query, std::move(withCompletionHandler));
}

void RestInterface::asyncGetTopFileRequest(const messages::GetTopFileRequestQuery& query,
    CompletionHandler<messages::GetTopFileRequestResponseData> withCompletionHandler)
{
    send(operations::asyncGetTopFileRequest, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateFileRequest(const messages::UpdateFileRequestQuery& query,
    CompletionHandler<messages::UpdateFileRequestResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateFileRequest, query, std::move(withCompletionHandler));
}

void RestInterface::asyncSyncFilesInTableAndCloud(const std::vector<messages::SyncFilesInTableAndCloudQuery>& query,
    CompletionHandler<std::vector<messages::SyncFilesInTableAndCloudResponseData>> withCompletionHandler)
{
    asyncSyncFilesInTableAndCloudWithBody(
        syncFilesInTableAndCloudBody(query.size(), [&](std::size_t index) { return query[index]; }),
        std::move(withCompletionHandler));
}

JsonBody RestInterface::syncFilesInTableAndCloudBody(
    std::size_t count, const std::function<messages::SyncFilesInTableAndCloudQuery(std::size_t)>& recordAt)
{
    // The body is the array the encoder puts under "syncData", not the encoded dictionary: each element is one
    // record's dictionary, written as soon as it is made.
    return writeJsonListBody(count, [&](std::size_t index) { return messages::encode(recordAt(index)); });
}

void RestInterface::asyncSyncFilesInTableAndCloudWithBody(JsonBody body,
    CompletionHandler<std::vector<messages::SyncFilesInTableAndCloudResponseData>> withCompletionHandler)
{
    const auto& operation = operations::asyncSyncFilesInTableAndCloud;
    makeTransport()->startAsyncTask(operation.path, std::move(body), {},
        completionStep(operation.decoder, std::move(withCompletionHandler)));
}

void RestInterface::asyncUpdateComputerStatus(const messages::UpdateComputerStatusQuery& query,
    CompletionHandler<messages::UpdateComputerStatusResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateComputerStatus, query, std::move(withCompletionHandler));
}

void RestInterface::asyncOneTimeSyncFiles(const messages::OneTimeSyncFilesQuery& query,
    CompletionHandler<messages::OneTimeSyncFilesResponseData> withCompletionHandler)
{
    send(operations::asyncOneTimeSyncFiles, query, std::move(withCompletionHandler));
}

void RestInterface::asyncSendPasswordToMailId(const messages::SendPasswordToMailIdQuery& query,
    CompletionHandler<messages::SendPasswordToMailIdResponseData> withCompiletionHandler)
{
    send(operations::asyncSendPasswordToMailId, query, std::move(withCompiletionHandler), "%@");
}

void RestInterface::asyncGetTopFileUploadWithStream(
    const messages::GetTopFileUploadQuery& query, StreamFinished withCompletionHandler)
{
    if (isLessThan10_10())
        return;
    const auto& operation = operations::asyncGetTopFileUploadWithStream;
    std::make_shared<RestConnector>()->startAsyncDownloadWithStreamRequest(operation.path, operation.encoder(query), {},
        [handler = std::move(withCompletionHandler)](
            const TransportObject& first, const TransportObject& second, TransportStatus status) {
            // Nothing is decoded; on failure the transport's error is dropped.
            if (status == TransportSucceeded)
                handler(first, second, status);
            else
                handler(std::monostate(), std::monostate(), status);
        });
}

void RestInterface::asyncUpdateFileRequestWithStream(const messages::UpdateFileRequestQuery& query,
    CompletionHandler<messages::UpdateFileRequestResponseData> withCompletionHandler)
{
    if (isLessThan10_10())
        return;
    const auto& operation = operations::asyncUpdateFileRequestWithStream;
    const platform::Value params = encodeAndLog(operation, query, "strem dictionary %@");
    std::make_shared<RestConnector>()->startAsyncUploadWithStreamRequest(
        operation.path, params, {}, completionStep(operation.decoder, std::move(withCompletionHandler)));
}

void RestInterface::asyncLogError(
    const messages::LogErrorQuery& query, CompletionHandler<messages::LogErrorResponseData> withCompiletionHandler)
{
    send(operations::asyncLogError, query, std::move(withCompiletionHandler), "%@");
}

void RestInterface::asyncGetSharedFilesTransferData(const messages::GetSharedFilesTransferDataQuery& query,
    CompletionHandler<messages::GetSharedFilesTransferDataResponseData> withCompletionHandler)
{
    send(operations::asyncGetSharedFilesTransferData, query, std::move(withCompletionHandler), " %@");
}

void RestInterface::asyncUpdateFileExist(const messages::UpdateFileExistQuery& query,
    CompletionHandler<messages::UpdateFileExistResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateFileExist, query, std::move(withCompletionHandler), "data from updatefileexist.%@");
}

void RestInterface::asyncUpdateFileSendReceived(const messages::UpdateFileSendReceivedQuery& query,
    CompletionHandler<messages::UpdateFileSendReceivedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateFileSendReceived, query, std::move(withCompletionHandler),
        "data from updatefilesendreceived.%@");
}

void RestInterface::asyncUploadFileWithStream(
    const messages::UploadFileWithStreamQuery& query, CompletionHandler<messages::ReplyValue> withCompletionHandler)
{
    send(operations::asyncUploadFileWithStream, query, std::move(withCompletionHandler),
        "data from uploadfilewithstream.%@");
}

void RestInterface::asyncupdateSendFileToTransfer(
    const messages::UpdateSendFileToTransferQuery& query, CompletionHandler<messages::ReplyValue> withcompletionHandler)
{
    send(operations::asyncupdateSendFileToTransfer, query, std::move(withcompletionHandler),
        "data from updatesendfiletotransfer.%@");
}

void RestInterface::asyncIsFileExistsInCloud(const messages::IsFileExistsInCloudQuery& query,
    CompletionHandler<messages::IsFileExistsInCloudResponseData> withCompiletionHandler)
{
    const auto& operation = operations::asyncIsFileExistsInCloud;
    const platform::Value params = encodeAndLog(operation, query, "data in could query...%@");
    auto transport = makeTransport();
    // The completion step keeps the transport, to log it.
    transport->startAsyncTask(operation.path, params, {},
        [transport, step = completionStep(operation.decoder, std::move(withCompiletionHandler))](
            const TransportObject& object, TransportStatus status) {
            platform::log("rest connector at cloud ....%@", transport->description());
            step(object, status);
            platform::log(status != TransportSucceeded ? "trace code error..........." : "trace code sucesss.........");
        });
}

void RestInterface::asyncUpdateFileReceived(const messages::UpdateFileReceivedQuery& query,
    CompletionHandler<messages::UpdateFileReceivedResponseData> withCompiletionHandler)
{
    send(operations::asyncUpdateFileReceived, query, std::move(withCompiletionHandler));
}

void RestInterface::asyncDeleteReceivedFileFromTransfer(const messages::DeleteReceivedFileFromTransferQuery& query,
    CompletionHandler<messages::DeleteReceivedFileFromTransferResponseData> withCompiletionHandler)
{
    const auto& operation = operations::asyncDeleteReceivedFileFromTransfer;
    const platform::Value params = encodeAndLog(operation, query, "data for delete Received File from Transfer.....%@");
    makeTransport()->startAsyncTask(operation.path, params, {},
        [step = completionStep(operation.decoder, std::move(withCompiletionHandler))](
            const TransportObject& object, TransportStatus status) {
            step(object, status);
            platform::log(status != TransportSucceeded
                    ? "  trce code error deleteReceivedFile From Transfer ............"
                    : "trace code sucess..............");
        });
}

void RestInterface::asyncInsertFile(
    const messages::InsertFileQuery& query, CompletionHandler<messages::InsertFileResponseData> withCompletionHandler)
{
    send(operations::asyncInsertFile, query, std::move(withCompletionHandler));
}

void RestInterface::asyncInsertSharedFilesTransfer(const messages::InsertSharedFilesTransferQuery& query,
    CompletionHandler<messages::InsertSharedFilesTransferResponseData> withCompletionHandler)
{
    send(operations::asyncInsertSharedFilesTransfer, query, std::move(withCompletionHandler));
}

void RestInterface::asyncupdateBSUploadStreamStart(const messages::UpdateBSUploadStreamStartedQuery& query,
    CompletionHandler<messages::UpdateBSUploadStreamStartedResponseData> withCompletionHandler)
{
    send(operations::asyncupdateBSUploadStreamStart, query, std::move(withCompletionHandler));
}

void RestInterface::asyncCheckFileExistsInDownloads(const messages::CheckFileExistsInDownloadsQuery& query,
    CompletionHandler<messages::CheckFileExistsInDownloadsResponseData> withCompletionhandler)
{
    send(operations::asyncCheckFileExistsInDownloads, query, std::move(withCompletionhandler));
}

void RestInterface::asyncUpdateBSUploadStreamFailed(const messages::UpdateBSUploadStreamFailedQuery& query,
    CompletionHandler<messages::UpdateBSUploadStreamFailedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSUploadStreamFailed, query, std::move(withCompletionHandler));
}

void RestInterface::asyncCheckFileExistsInTransfers(const messages::CheckFileExistsInTransfersQuery& query,
    CompletionHandler<messages::CheckFileExistsInTransfersResponseData> withCompletionhandler)
{
    send(operations::asyncCheckFileExistsInTransfers, query, std::move(withCompletionhandler));
}

void RestInterface::asyncUpdateBSSendStreamStarted(const messages::UpdateBSSendStreamStartedQuery& query,
    CompletionHandler<messages::UpdateBSSendStreamStartedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSSendStreamStarted, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateBSSendStreamFailed(const messages::UpdateBSSendStreamFailedQuery& query,
    CompletionHandler<messages::UpdateBSSendStreamFailedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSSendStreamFailed, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateBSReceiveStreamStart(const messages::UpdateBSReceiveStreamStartedQuery& query,
    CompletionHandler<messages::UpdateBSReceiveStreamStartedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSReceiveStreamStart, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateBSReceiveStreamfailed(const messages::UpdateBSReceiveStreamFailedQuery& query,
    CompletionHandler<messages::UpdateBSReceiveStreamFailedResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSReceiveStreamfailed, query, std::move(withCompletionHandler));
}

void RestInterface::asyncupdateBSDownloadStreamStart(const messages::UpdateBSDownloadStreamStartedQuery& query,
    CompletionHandler<messages::UpdateBSDownloadStreamStartedResponseData> withCompletionHandler)
{
    send(operations::asyncupdateBSDownloadStreamStart, query, std::move(withCompletionHandler));
}

void RestInterface::asyncupdateBSDownloadStreamFailed(const messages::UpdateBSDownloadStreamFailedQuery& query,
    CompletionHandler<messages::UpdateBSDownloadStreamFailedResponseData> withCompletionHandler)
{
    send(operations::asyncupdateBSDownloadStreamFailed, query, std::move(withCompletionHandler));
}

void RestInterface::asyncGetTopFileDeleteRequest(const messages::GetTopFileDeleteRequestQuery& query,
    CompletionHandler<messages::GetTopFileDeleteResponseData> withCompletionHandler)
{
    send(operations::asyncGetTopFileDeleteRequest, query, std::move(withCompletionHandler));
}

void RestInterface::asyncUpdateBSFileDeleted(const messages::UpdateBSFileDeletedQuery& query,
    CompletionHandler<messages::UpdateBSFileDeleteResponseData> withCompletionHandler)
{
    send(operations::asyncUpdateBSFileDeleted, query, std::move(withCompletionHandler));
}

}
