#pragma once

// The response records: one plain record per server method, made by DataParser from the parsed reply. A property
// holds exactly what the reply held under its key (text, number, boolean or the null object, never converted) and
// is absent when the key was missing. Several records carry an `error` that their decoder never fills; it stays
// absent whatever the reply says. The keys that fill each property are in ResponseKeys.h.

#include "platform/Value.h"

#include <optional>

namespace messages {

// A property of a response record: absent, or the value found in the reply, whatever its kind.
using ReplyValue = std::optional<platform::Value>;

struct UserRegistrationResponseData {
    ReplyValue returnStatus;
    ReplyValue returnValue;
    ReplyValue userId;
    ReplyValue cloudComputerId;
    ReplyValue error;
};

struct RegisterComputerResponseData {
    ReplyValue computerId;
    ReplyValue returnStatus;
    ReplyValue error;
};

struct SendActivationMailResponseData {
    ReplyValue returnStatus;
    ReplyValue returnMsg;
    ReplyValue error;
};

struct OneTimeSyncOwnersSharedFoldersResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct TransferFilesFromCloudToBaseSystemResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct GetTopFileUploadResponseData {
    ReplyValue attachment;
    ReplyValue fileName;
    ReplyValue fileUploadId;
    ReplyValue isFile;
    ReplyValue returnStatus;
    ReplyValue serverPath;
    ReplyValue toComputerId;
    ReplyValue transitUploadPath;
    ReplyValue uploadProcessed;
    ReplyValue error;
};

struct CheckUserMailActivationStatusResponseData {
    ReplyValue returnStatus;
    ReplyValue returnValue;
    ReplyValue error;
};

struct UpdateFileUploadResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct GetTopFileRequestResponseData {
    ReplyValue filePath;
    ReplyValue fileRequestID;
    ReplyValue returnStatus;
    ReplyValue TransitDownloadPath;
    ReplyValue sharedFlag;
    ReplyValue ownerFileID;
    ReplyValue byteStartPos;
    ReplyValue error;
};

struct UpdateFileRequestResponseData {
    ReplyValue ReturnStatus;
    ReplyValue error;
};

// The server's answer to one change record of the batch report; the batch reply is a list of these.
struct SyncFilesInTableAndCloudResponseData {
    ReplyValue fileId;
    ReplyValue returnStatus;
    ReplyValue baseSystemFileID;
};

struct UpdateComputerStatusResponseData {
    ReplyValue returnStatus;
    ReplyValue VersionNumber;
    ReplyValue error;
};

struct OneTimeSyncFilesResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct SendPasswordToMailIdResponseData {
    ReplyValue returnStatus;
    ReplyValue returnMsg;
    ReplyValue error;
};

struct LogErrorResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateFileExistResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateFileSendReceivedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct IsFileExistsInCloudResponseData {
    ReplyValue isExists;
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateFileReceivedResponseData {
    ReplyValue ReturnStatus;
    ReplyValue error;
};

struct DeleteReceivedFileFromTransferResponseData {
    ReplyValue ReturnStatus;
    ReplyValue error;
};

struct InsertFileResponseData {
    ReplyValue fileID;
    ReplyValue returnStatus;
    ReplyValue error;
};

struct InsertSharedFilesTransferResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateBSUploadStreamStartedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateBSDownloadStreamStartedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateBSDownloadStreamFailedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct CheckFileExistsInDownloadsResponseData {
    ReplyValue byteStartPos;
    ReplyValue returnStatus;
    ReplyValue error;
};

struct UpdateBSUploadStreamFailedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct CheckFileExistsInTransfersResponseData {
    ReplyValue byteStartPos;
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct UpdateBSSendStreamStartedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct UpdateBSSendStreamFailedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct UpdateBSReceiveStreamStartedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct UpdateBSReceiveStreamFailedResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

// The reply of the get-top-file-delete-request method; `error` is never filled by its decoder.
struct GetTopFileDeleteResponseData {
    ReplyValue deleteRequestID;
    ReplyValue filePath;
    ReplyValue returnStatus;
    ReplyValue error;
};

// `error` is never filled by its decoder.
struct UpdateBSFileDeleteResponseData {
    ReplyValue returnStatus;
    ReplyValue error;
};

}
