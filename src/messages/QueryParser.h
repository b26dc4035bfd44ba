#pragma once

// QueryParser turns a request record into the dictionary that the transport sends as the request body: one class
// operation per server method, named as the façade knows it (spelling irregularities included). Each works from
// the record's key list (QueryKeys.h): a present property is copied under its key, an absent one leaves its key
// out, and an absent record gives a dictionary with no keys. Encoders never fail and validate nothing; they are
// pure functions and may be called from any thread.

#include "messages/Queries.h"
#include "platform/Value.h"

#include <optional>
#include <vector>

namespace messages {

class QueryParser {
public:
    QueryParser() = delete;

    static platform::Value parseUserRegistrationQuery(const std::optional<UserRegistrationQuery>& query);
    static platform::Value parseRegisterComputerQuery(const std::optional<RegisterComputerQuery>& query);
    static platform::Value parseSendActivationMailQuery(const std::optional<SendActivationMailQuery>& query);
    static platform::Value parseOneTimeSyncOwnersSharedFoldersQuery(
        const std::optional<OneTimeSyncOwnersSharedFoldersQuery>& query);
    static platform::Value parseGetTopFileUploadQuery(const std::optional<GetTopFileUploadQuery>& query);
    static platform::Value parseCheckUserMailActivationStatusQuery(
        const std::optional<CheckUserMailActivationStatusQuery>& query);
    static platform::Value parseUpdateFileUploadQuery(const std::optional<UpdateFileUploadQuery>& query);
    static platform::Value parsegetTopFileRequestQuery(const std::optional<GetTopFileRequestQuery>& query);
    static platform::Value parseUpdateFileRequestQuery(const std::optional<UpdateFileRequestQuery>& query);
    // The batch report: {"syncData": [one dictionary per record, in order]}; an absent list gives an empty array.
    static platform::Value parseSyncFilesInTableAndCloudQuery(
        const std::optional<std::vector<SyncFilesInTableAndCloudQuery>>& records);
    static platform::Value parseUpdateComputerStatusQuery(const std::optional<UpdateComputerStatusQuery>& query);
    static platform::Value parseOneTimeSyncFilesQuery(const std::optional<OneTimeSyncFilesQuery>& query);
    static platform::Value parseTransferFilesFromColudToBaseSystemQuery(
        const std::optional<TransferFilesFromCloudToBaseSystemQuery>& query);
    static platform::Value parseSendPasswordToMailIdQuery(const std::optional<SendPasswordToMailIdQuery>& query);
    static platform::Value parseLogErrorQuery(const std::optional<LogErrorQuery>& query);
    static platform::Value parseGetSharedFilesTransferDataQuery(
        const std::optional<GetSharedFilesTransferDataQuery>& query);
    static platform::Value parseUpdateFileExistDataQuery(const std::optional<UpdateFileExistQuery>& query);
    static platform::Value parseUpdateFileSendReceivedQuery(const std::optional<UpdateFileSendReceivedQuery>& query);
    static platform::Value parseUploadWithStreamQuery(const std::optional<UploadFileWithStreamQuery>& query);
    static platform::Value parseUpdateSendFileToTransferQuery(
        const std::optional<UpdateSendFileToTransferQuery>& query);
    static platform::Value parseIsFileExistsInCloudQuery(const std::optional<IsFileExistsInCloudQuery>& query);
    static platform::Value parseUpdateFileReceivedQuery(const std::optional<UpdateFileReceivedQuery>& query);
    static platform::Value parseDeleteReceivedFileFromTransferQuery(
        const std::optional<DeleteReceivedFileFromTransferQuery>& query);
    static platform::Value parseInsertFileQuery(const std::optional<InsertFileQuery>& query);
    static platform::Value parseInsertSharedFilesTransferQuery(
        const std::optional<InsertSharedFilesTransferQuery>& query);
    static platform::Value parseUpdateBSUploadStreamStartedQuery(
        const std::optional<UpdateBSUploadStreamStartedQuery>& query);
    static platform::Value parseUpdateBSUploadStreamFailedQuery(
        const std::optional<UpdateBSUploadStreamFailedQuery>& query);
    static platform::Value parseUpdateBSDownloadStreamStartedQuery(
        const std::optional<UpdateBSDownloadStreamStartedQuery>& query);
    static platform::Value parseUpdateBSDownloadStreamFailedQuery(
        const std::optional<UpdateBSDownloadStreamFailedQuery>& query);
    static platform::Value parseCheckFileExistsInDownloadsQuery(
        const std::optional<CheckFileExistsInDownloadsQuery>& query);
    static platform::Value parseCheckFileExistsInTransfersQuery(
        const std::optional<CheckFileExistsInTransfersQuery>& query);
    static platform::Value parseUpdateBSSendStreamStartedQuery(
        const std::optional<UpdateBSSendStreamStartedQuery>& query);
    static platform::Value parseUpdateBSSendStreamFailedQuery(
        const std::optional<UpdateBSSendStreamFailedQuery>& query);
    static platform::Value parseUpdateBSReceiveStreamStartedQuery(
        const std::optional<UpdateBSReceiveStreamStartedQuery>& query);
    static platform::Value parseUpdateBSReceiveStreamFailedQuery(
        const std::optional<UpdateBSReceiveStreamFailedQuery>& query);
    static platform::Value parseGetTopFileDeleteRequestQuery(
        const std::optional<GetTopFileDeleteRequestQuery>& query);
    static platform::Value parseUpdateBSFileDeletedQuery(const std::optional<UpdateBSFileDeletedQuery>& query);
};

}
