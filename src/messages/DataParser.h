#pragma once

// DataParser turns a parsed reply into the response record of its server method: one class operation per server
// method, named as the façade knows it (spelling irregularities included: parseUserRegistrationReponseData,
// parseUpdateBSSendStreamstartedResponseData, parseGetTopFileResponseData making a GetTopFileDeleteResponseData).
// Each works from the record's key list (ResponseKeys.h, SharedTransferKeys.h): values are stored as found, a
// missing key leaves its property absent, unknown keys are ignored, and a reply that is absent or not a dictionary
// gives a record with every property absent. Decoders never fail on content, except the two bare-value decoders,
// and are pure functions that may run on any thread.

#include "messages/Responses.h"
#include "messages/SharedTransfer.h"

#include <vector>

namespace messages {

class DataParser {
public:
    DataParser() = delete;

    static UserRegistrationResponseData parseUserRegistrationReponseData(const ReplyValue& reply);
    static RegisterComputerResponseData parseRegisterComputerResponseData(const ReplyValue& reply);
    static SendActivationMailResponseData parseSendActivationMailResponseData(const ReplyValue& reply);
    static OneTimeSyncOwnersSharedFoldersResponseData parseOneTimeSyncOwnersSharedFoldersResponseData(
        const ReplyValue& reply);
    static TransferFilesFromCloudToBaseSystemResponseData parseTransferFilesFromCloudToBaseSystemResponseData(
        const ReplyValue& reply);
    static GetTopFileUploadResponseData parseGetTopFileUploadResponseData(const ReplyValue& reply);
    static CheckUserMailActivationStatusResponseData parseCheckUserMailActivationStatusResponseData(
        const ReplyValue& reply);
    static UpdateFileUploadResponseData parseUpdateFileUploadResponseData(const ReplyValue& reply);
    static GetTopFileRequestResponseData parseGetTopFileRequestResponseData(const ReplyValue& reply);
    static UpdateFileRequestResponseData parseUpdateFileRequestResponseData(const ReplyValue& reply);
    // The batch reply, an array with one result per change record, in order. The reply goes through a
    // serialise-and-reparse round trip first, whose failures are not examined; a reply that is not an array, or does
    // not survive the round trip, gives an empty list.
    static std::vector<SyncFilesInTableAndCloudResponseData> parseSyncFilesInTableAndCloudResponseData(
        const ReplyValue& reply);
    static UpdateComputerStatusResponseData parseUpdateComputerStatusResponseData(const ReplyValue& reply);
    static OneTimeSyncFilesResponseData parseOneTimeSyncFilesResponseData(const ReplyValue& reply);
    static SendPasswordToMailIdResponseData parseSendPasswordToMailIdResponseData(const ReplyValue& reply);
    static LogErrorResponseData parseLogErrorResponseData(const ReplyValue& reply);
    static GetSharedFilesTransferDataResponseData parseGetSharedFilesTransferDataResponseData(
        const ReplyValue& reply);
    static UpdateFileExistResponseData parseUpdateFileExistResponseData(const ReplyValue& reply);
    static UpdateFileSendReceivedResponseData parseUpdateFileSendReceivedResponseData(const ReplyValue& reply);
    // Raises platform::Exception whenever the reply holds "ReturnStatus"; otherwise returns absent.
    static ReplyValue parseUploadFileWithStreamResponseData(const ReplyValue& reply);
    // Raises platform::Exception whenever the reply holds "ReturnStatus"; otherwise returns absent.
    static ReplyValue parseUpdateSendFileToTransferResponseData(const ReplyValue& reply);
    static IsFileExistsInCloudResponseData parseIsFileExistsInCloudResponseData(const ReplyValue& reply);
    static UpdateFileReceivedResponseData parseUpdateFileReceivedResponseData(const ReplyValue& reply);
    static DeleteReceivedFileFromTransferResponseData parseDeleteReceivedFileFromTransferResponseData(
        const ReplyValue& reply);
    static InsertFileResponseData parseInsertFileResponseData(const ReplyValue& reply);
    static InsertSharedFilesTransferResponseData parseInsertSharedFilesTransferResponseData(const ReplyValue& reply);
    static UpdateBSUploadStreamStartedResponseData parseUpdateBSUploadStreamStartedResponseData(
        const ReplyValue& reply);
    static UpdateBSDownloadStreamStartedResponseData parseUpdateBSDownloadStreamStartedResponseData(
        const ReplyValue& reply);
    static UpdateBSDownloadStreamFailedResponseData parseUpdateBSDownloadStreamFailedResponseData(
        const ReplyValue& reply);
    static CheckFileExistsInDownloadsResponseData parseCheckFileExistsInDownloadsResponseData(
        const ReplyValue& reply);
    static UpdateBSUploadStreamFailedResponseData parseUpdateBSUploadStreamFailedResponseData(
        const ReplyValue& reply);
    static CheckFileExistsInTransfersResponseData parseCheckFileExistsInTransfersResponseData(
        const ReplyValue& reply);
    static UpdateBSSendStreamStartedResponseData parseUpdateBSSendStreamstartedResponseData(const ReplyValue& reply);
    static UpdateBSSendStreamFailedResponseData parseUpdateBSSendStreamFailedResponseData(const ReplyValue& reply);
    static UpdateBSReceiveStreamStartedResponseData parseUpdateBSReceiveStreamStartedResponseData(
        const ReplyValue& reply);
    static UpdateBSReceiveStreamFailedResponseData parseUpdateBSReceiveStreamFailedResponseData(
        const ReplyValue& reply);
    static GetTopFileDeleteResponseData parseGetTopFileResponseData(const ReplyValue& reply);
    static UpdateBSFileDeleteResponseData parseUpdateBSFileDeleteResponseData(const ReplyValue& reply);
};

}
