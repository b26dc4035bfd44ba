#pragma once

// Every server method as data: the façade operation's selector, the method's path under the service's base URL,
// the encoder and the decoder it uses (and through their types the request and reply records), and the transport
// that carries it. The REST façade takes its paths and codecs from here, and a server answering these methods can
// walk allOperations, decode each request body with decode<Operation::QueryRecord> and write each reply with
// encode (WireCodec.h; every key list is included below).

#include "messages/DataParser.h"
#include "messages/QueryKeys.h"
#include "messages/QueryParser.h"
#include "messages/ResponseKeys.h"
#include "messages/SharedTransferKeys.h"
#include "messages/WireCodec.h"

#include <optional>
#include <string_view>
#include <tuple>

namespace messages {

enum class Transport {
    // A JSON request posted as a task, its JSON reply decoded.
    Task,
    // The reply is a file's contents, streamed down and handed over undecoded.
    StreamDownload,
    // The request carries a file's contents streamed up; the JSON reply is decoded.
    StreamUpload,
};

// The "reply record" of a stream download: there is none, the raw reply goes to the caller.
struct StreamedReply { };

// One server method. QueryRecord is what its encoder takes (for the batch report, the list of change records,
// whose body on the wire is the encoded dictionary's "syncData" array); ResponseRecord is what its decoder gives
// (for the two bare-value decoders, the bare value). `decoder` is null for a stream download.
template<typename Query, typename Response>
struct Operation {
    using QueryRecord = Query;
    using ResponseRecord = Response;

    std::string_view selector;
    std::string_view path;
    platform::Value (*encoder)(const std::optional<Query>&);
    Response (*decoder)(const ReplyValue&);
    Transport transport;
};

template<typename Query, typename Response>
Operation(std::string_view, std::string_view, platform::Value (*)(const std::optional<Query>&),
    Response (*)(const ReplyValue&), Transport) -> Operation<Query, Response>;

namespace operations {

inline constexpr Operation asyncUserRegistration {
    "asyncUserRegistration:withCompletionHandler:",
    "Registration.svc/VerifyAndRegisterUserFromTool",
    &QueryParser::parseUserRegistrationQuery,
    &DataParser::parseUserRegistrationReponseData,
    Transport::Task,
};

inline constexpr Operation asyncRegisterComputer {
    "asyncRegisterComputer:withCompletionHandler:",
    "Registration.svc/RegisterComputer",
    &QueryParser::parseRegisterComputerQuery,
    &DataParser::parseRegisterComputerResponseData,
    Transport::Task,
};

inline constexpr Operation asyncSendActivationMail {
    "asyncSendActivationMail:withCompletionHandler:",
    "Registration.svc/SendActivationMail",
    &QueryParser::parseSendActivationMailQuery,
    &DataParser::parseSendActivationMailResponseData,
    Transport::Task,
};

inline constexpr Operation asyncOneTimeSyncOwnersSharedFolders {
    "asyncOneTimeSyncOwnersSharedFolders:withCompletionHandler:",
    "Registration.svc/OneTimeSyncOwnersSharedFolders",
    &QueryParser::parseOneTimeSyncOwnersSharedFoldersQuery,
    &DataParser::parseOneTimeSyncOwnersSharedFoldersResponseData,
    Transport::Task,
};

inline constexpr Operation asyncTransferFilesFromCloudToBaseSystem {
    "asyncTransferFilesFromCloudToBaseSystem:withCompletionHandler:",
    "Registration.svc/TransferFilesFromCloudToBaseSystem",
    &QueryParser::parseTransferFilesFromColudToBaseSystemQuery,
    &DataParser::parseTransferFilesFromCloudToBaseSystemResponseData,
    Transport::Task,
};

inline constexpr Operation asyncGetTopFileUpload {
    "asyncGetTopFileUpload:withCompletionHandler:",
    "Uploads.svc/GetTopFileUpload",
    &QueryParser::parseGetTopFileUploadQuery,
    &DataParser::parseGetTopFileUploadResponseData,
    Transport::Task,
};

inline constexpr Operation asyncCheckUserMailActivationStatus {
    "asyncCheckUserMailActivationStatus:withCompletionHandler:",
    "Registration.svc/CheckUserMailActivationStatus",
    &QueryParser::parseCheckUserMailActivationStatusQuery,
    &DataParser::parseCheckUserMailActivationStatusResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateFileUpload {
    "asyncUpdateFileUpload:withCompletionHandler:",
    "Uploads.svc/UpdateFileUpload",
    &QueryParser::parseUpdateFileUploadQuery,
    &DataParser::parseUpdateFileUploadResponseData,
    Transport::Task,
};

inline constexpr Operation asyncGetTopFileRequest {
    "asyncGetTopFileRequest:withCompletionHandler:",
    "Downloads.svc/GetTopFileRequest",
    &QueryParser::parsegetTopFileRequestQuery,
    &DataParser::parseGetTopFileRequestResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateFileRequest {
    "asyncUpdateFileRequest:withCompletionHandler:",
    "Downloads.svc/UpdateFileRequest",
    &QueryParser::parseUpdateFileRequestQuery,
    &DataParser::parseUpdateFileRequestResponseData,
    Transport::Task,
};

inline constexpr Operation asyncSyncFilesInTableAndCloud {
    "asyncSyncFilesInTableAndCloud:withCompletionHandler:",
    "SyncFileChanges.svc/SyncFilesInTableAndCloud",
    &QueryParser::parseSyncFilesInTableAndCloudQuery,
    &DataParser::parseSyncFilesInTableAndCloudResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateComputerStatus {
    "asyncUpdateComputerStatus:withCompletionHandler:",
    "UpdateSystemTime.svc/UpdateComputerStatus",
    &QueryParser::parseUpdateComputerStatusQuery,
    &DataParser::parseUpdateComputerStatusResponseData,
    Transport::Task,
};

inline constexpr Operation asyncOneTimeSyncFiles {
    "asyncOneTimeSyncFiles:withCompletionHandler:",
    "Registration.svc/OneTimeSyncFiles",
    &QueryParser::parseOneTimeSyncFilesQuery,
    &DataParser::parseOneTimeSyncFilesResponseData,
    Transport::Task,
};

inline constexpr Operation asyncSendPasswordToMailId {
    "asyncSendPasswordToMailId:withCompiletionHandler:",
    "Registration.svc/SendPasswordToMailID",
    &QueryParser::parseSendPasswordToMailIdQuery,
    &DataParser::parseSendPasswordToMailIdResponseData,
    Transport::Task,
};

inline constexpr Operation<GetTopFileUploadQuery, StreamedReply> asyncGetTopFileUploadWithStream {
    "asyncGetTopFileUploadWithStream:withCompletionHandler:",
    "Uploads.svc/GetTopFileUploadWithStream",
    &QueryParser::parseGetTopFileUploadQuery,
    nullptr,
    Transport::StreamDownload,
};

inline constexpr Operation asyncUpdateFileRequestWithStream {
    "asyncUpdateFileRequestWithStream:withCompletionHandler:",
    "Downloads.svc/UpdateFileRequestWithStream",
    &QueryParser::parseUpdateFileRequestQuery,
    &DataParser::parseUpdateFileRequestResponseData,
    Transport::StreamUpload,
};

inline constexpr Operation asyncLogError {
    "asyncLogError:withCompiletionHandler:",
    "MAC/ErrorLog.svc/LogError",
    &QueryParser::parseLogErrorQuery,
    &DataParser::parseLogErrorResponseData,
    Transport::Task,
};

inline constexpr Operation asyncGetSharedFilesTransferData {
    "asyncGetSharedFilesTransferData:withCompletionHandler:",
    "MAC/SharedFiles.svc/GetSharedFilesTransferData",
    &QueryParser::parseGetSharedFilesTransferDataQuery,
    &DataParser::parseGetSharedFilesTransferDataResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateFileExist {
    "asyncUpdateFileExist:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateFileExists",
    &QueryParser::parseUpdateFileExistDataQuery,
    &DataParser::parseUpdateFileExistResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateFileSendReceived {
    "asyncUpdateFileSendReceived:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateFileSendReceived",
    &QueryParser::parseUpdateFileSendReceivedQuery,
    &DataParser::parseUpdateFileSendReceivedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUploadFileWithStream {
    "asyncUploadFileWithStream:withCompletionHandler:",
    "MAC/SharedFiles.svc/UploadFileWithStream",
    &QueryParser::parseUploadWithStreamQuery,
    &DataParser::parseUploadFileWithStreamResponseData,
    Transport::Task,
};

inline constexpr Operation asyncupdateSendFileToTransfer {
    "asyncupdateSendFileToTransfer:withcompletionHandler:",
    "MAC/SharedFiles.svc/UpdateSendFileToTransfer",
    &QueryParser::parseUpdateSendFileToTransferQuery,
    &DataParser::parseUpdateSendFileToTransferResponseData,
    Transport::Task,
};

inline constexpr Operation asyncIsFileExistsInCloud {
    "asyncIsFileExistsInCloud:withCompiletionHandler:",
    "MAC/SharedFiles.svc/IsFileExistsInCloud",
    &QueryParser::parseIsFileExistsInCloudQuery,
    &DataParser::parseIsFileExistsInCloudResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateFileReceived {
    "asyncUpdateFileReceived:withCompiletionHandler:",
    "MAC/SharedFiles.svc/UpdateFileReceived",
    &QueryParser::parseUpdateFileReceivedQuery,
    &DataParser::parseUpdateFileReceivedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncDeleteReceivedFileFromTransfer {
    "asyncDeleteReceivedFileFromTransfer:withCompiletionHandler:",
    "MAC/SharedFiles.svc/DeleteReceivedFileFromTransfer",
    &QueryParser::parseDeleteReceivedFileFromTransferQuery,
    &DataParser::parseDeleteReceivedFileFromTransferResponseData,
    Transport::Task,
};

inline constexpr Operation asyncInsertFile {
    "asyncInsertFile:withCompletionHandler:",
    "SyncFileChanges.svc/InsertFile",
    &QueryParser::parseInsertFileQuery,
    &DataParser::parseInsertFileResponseData,
    Transport::Task,
};

inline constexpr Operation asyncInsertSharedFilesTransfer {
    "asyncInsertSharedFilesTransfer:withCompletionHandler:",
    "SyncFileChanges.svc/InsertSharedFilesTransfer",
    &QueryParser::parseInsertSharedFilesTransferQuery,
    &DataParser::parseInsertSharedFilesTransferResponseData,
    Transport::Task,
};

inline constexpr Operation asyncupdateBSUploadStreamStart {
    "asyncupdateBSUploadStreamStart:withCompletionHandler:",
    "Uploads.svc/UpdateBSUploadStreamStarted",
    &QueryParser::parseUpdateBSUploadStreamStartedQuery,
    &DataParser::parseUpdateBSUploadStreamStartedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncCheckFileExistsInDownloads {
    "asyncCheckFileExistsInDownloads:withCompletionhandler:",
    "Downloads.svc/CheckFileExistsInDownloads",
    &QueryParser::parseCheckFileExistsInDownloadsQuery,
    &DataParser::parseCheckFileExistsInDownloadsResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSUploadStreamFailed {
    "asyncUpdateBSUploadStreamFailed:withCompletionHandler:",
    "Uploads.svc/UpdateBSUploadStreamFailed",
    &QueryParser::parseUpdateBSUploadStreamFailedQuery,
    &DataParser::parseUpdateBSUploadStreamFailedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncCheckFileExistsInTransfers {
    "asyncCheckFileExistsInTransfers:withCompletionhandler:",
    "MAC/SharedFiles.svc/CheckFileExistsInTransfers",
    &QueryParser::parseCheckFileExistsInTransfersQuery,
    &DataParser::parseCheckFileExistsInTransfersResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSSendStreamStarted {
    "asyncUpdateBSSendStreamStarted:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateBSSendStreamStarted",
    &QueryParser::parseUpdateBSSendStreamStartedQuery,
    &DataParser::parseUpdateBSSendStreamstartedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSSendStreamFailed {
    "asyncUpdateBSSendStreamFailed:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateBSSendStreamFailed",
    &QueryParser::parseUpdateBSSendStreamFailedQuery,
    &DataParser::parseUpdateBSSendStreamFailedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSReceiveStreamStart {
    "asyncUpdateBSReceiveStreamStart:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateBSReceiveStreamStarted",
    &QueryParser::parseUpdateBSReceiveStreamStartedQuery,
    &DataParser::parseUpdateBSReceiveStreamStartedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSReceiveStreamfailed {
    "asyncUpdateBSReceiveStreamfailed:withCompletionHandler:",
    "MAC/SharedFiles.svc/UpdateBSReceiveStreamFailed",
    &QueryParser::parseUpdateBSReceiveStreamFailedQuery,
    &DataParser::parseUpdateBSReceiveStreamFailedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncupdateBSDownloadStreamStart {
    "asyncupdateBSDownloadStreamStart:withCompletionHandler:",
    "Downloads.svc/UpdateBSDownloadStreamStarted",
    &QueryParser::parseUpdateBSDownloadStreamStartedQuery,
    &DataParser::parseUpdateBSDownloadStreamStartedResponseData,
    Transport::Task,
};

// The path ends, after "Failed", with U+FFFC OBJECT REPLACEMENT CHARACTER: it is not the server method's name, so this
// operation never reaches its method. Kept as it is.
inline constexpr Operation asyncupdateBSDownloadStreamFailed {
    "asyncupdateBSDownloadStreamFailed:withCompletionHandler:",
    "Downloads.svc/UpdateBSDownloadStreamFailed\uFFFC",
    &QueryParser::parseUpdateBSDownloadStreamFailedQuery,
    &DataParser::parseUpdateBSDownloadStreamFailedResponseData,
    Transport::Task,
};

inline constexpr Operation asyncGetTopFileDeleteRequest {
    "asyncGetTopFileDeleteRequest:withCompletionHandler:",
    "Downloads.svc/GetTopFileDeleteRequest",
    &QueryParser::parseGetTopFileDeleteRequestQuery,
    &DataParser::parseGetTopFileResponseData,
    Transport::Task,
};

inline constexpr Operation asyncUpdateBSFileDeleted {
    "asyncUpdateBSFileDeleted:withCompletionHandler:",
    "Downloads.svc/UpdateBSFileDeleted",
    &QueryParser::parseUpdateBSFileDeletedQuery,
    &DataParser::parseUpdateBSFileDeleteResponseData,
    Transport::Task,
};

}

// All 39 server methods, in the façade's order.
inline constexpr std::tuple allOperations {
    operations::asyncUserRegistration,
    operations::asyncRegisterComputer,
    operations::asyncSendActivationMail,
    operations::asyncOneTimeSyncOwnersSharedFolders,
    operations::asyncTransferFilesFromCloudToBaseSystem,
    operations::asyncGetTopFileUpload,
    operations::asyncCheckUserMailActivationStatus,
    operations::asyncUpdateFileUpload,
    operations::asyncGetTopFileRequest,
    operations::asyncUpdateFileRequest,
    operations::asyncSyncFilesInTableAndCloud,
    operations::asyncUpdateComputerStatus,
    operations::asyncOneTimeSyncFiles,
    operations::asyncSendPasswordToMailId,
    operations::asyncGetTopFileUploadWithStream,
    operations::asyncUpdateFileRequestWithStream,
    operations::asyncLogError,
    operations::asyncGetSharedFilesTransferData,
    operations::asyncUpdateFileExist,
    operations::asyncUpdateFileSendReceived,
    operations::asyncUploadFileWithStream,
    operations::asyncupdateSendFileToTransfer,
    operations::asyncIsFileExistsInCloud,
    operations::asyncUpdateFileReceived,
    operations::asyncDeleteReceivedFileFromTransfer,
    operations::asyncInsertFile,
    operations::asyncInsertSharedFilesTransfer,
    operations::asyncupdateBSUploadStreamStart,
    operations::asyncCheckFileExistsInDownloads,
    operations::asyncUpdateBSUploadStreamFailed,
    operations::asyncCheckFileExistsInTransfers,
    operations::asyncUpdateBSSendStreamStarted,
    operations::asyncUpdateBSSendStreamFailed,
    operations::asyncUpdateBSReceiveStreamStart,
    operations::asyncUpdateBSReceiveStreamfailed,
    operations::asyncupdateBSDownloadStreamStart,
    operations::asyncupdateBSDownloadStreamFailed,
    operations::asyncGetTopFileDeleteRequest,
    operations::asyncUpdateBSFileDeleted,
};

// Calls `visit` with every operation of allOperations, in order.
template<typename Visitor>
constexpr void forEachOperation(Visitor&& visit)
{
    std::apply([&](const auto&... operation) { (visit(operation), ...); }, allOperations);
}

}
