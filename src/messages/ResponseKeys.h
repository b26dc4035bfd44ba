#pragma once

// The keys that every reply decoder reads, each with the property it sets, in the order the decoder reads them.
// These keys are the protocol from the server and are spelled exactly as it sends them. Some pairs are irregular
// and kept: "ReturnVal" sets returnValue, "FromShared" sets sharedFlag, "FileID" sets ownerFileID in
// GetTopFileRequestResponseData. A record whose list has no "error" row keeps `error` absent even when the reply
// carries one.

#include "messages/KeyList.h"
#include "messages/Responses.h"

#include <tuple>

namespace messages {

template<> struct KeyList<UserRegistrationResponseData> {
    using R = UserRegistrationResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "ReturnVal", &R::returnValue },
        Key { "UserID", &R::userId },
        Key { "CloudComputerID", &R::cloudComputerId },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<RegisterComputerResponseData> {
    using R = RegisterComputerResponseData;
    static constexpr std::tuple keys {
        Key { "ComputerID", &R::computerId },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<SendActivationMailResponseData> {
    using R = SendActivationMailResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "ReturnMsg", &R::returnMsg },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<OneTimeSyncOwnersSharedFoldersResponseData> {
    using R = OneTimeSyncOwnersSharedFoldersResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<TransferFilesFromCloudToBaseSystemResponseData> {
    using R = TransferFilesFromCloudToBaseSystemResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<GetTopFileUploadResponseData> {
    using R = GetTopFileUploadResponseData;
    static constexpr std::tuple keys {
        Key { "Attachment", &R::attachment },
        Key { "FileName", &R::fileName },
        Key { "FileUploadID", &R::fileUploadId },
        Key { "IsFile", &R::isFile },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "ServerPath", &R::serverPath },
        Key { "ToComputerID", &R::toComputerId },
        Key { "TransitUploadPath", &R::transitUploadPath },
        Key { "UploadProcessed", &R::uploadProcessed },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<CheckUserMailActivationStatusResponseData> {
    using R = CheckUserMailActivationStatusResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "ReturnVal", &R::returnValue },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateFileUploadResponseData> {
    using R = UpdateFileUploadResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<GetTopFileRequestResponseData> {
    using R = GetTopFileRequestResponseData;
    static constexpr std::tuple keys {
        Key { "FilePath", &R::filePath },
        Key { "FileRequestID", &R::fileRequestID },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "TransitDownloadPath", &R::TransitDownloadPath },
        Key { "FromShared", &R::sharedFlag },
        Key { "FileID", &R::ownerFileID },
        Key { "ByteStartPos", &R::byteStartPos },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateFileRequestResponseData> {
    using R = UpdateFileRequestResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::ReturnStatus },
        Key { "error", &R::error },
    };
};

// Read once per element of the batch reply; no "error".
template<> struct KeyList<SyncFilesInTableAndCloudResponseData> {
    using R = SyncFilesInTableAndCloudResponseData;
    static constexpr std::tuple keys {
        Key { "FileID", &R::fileId },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "BaseSystemFileID", &R::baseSystemFileID },
    };
};

template<> struct KeyList<UpdateComputerStatusResponseData> {
    using R = UpdateComputerStatusResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "VersionNumber", &R::VersionNumber },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<OneTimeSyncFilesResponseData> {
    using R = OneTimeSyncFilesResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<SendPasswordToMailIdResponseData> {
    using R = SendPasswordToMailIdResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "ReturnMsg", &R::returnMsg },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<LogErrorResponseData> {
    using R = LogErrorResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateFileExistResponseData> {
    using R = UpdateFileExistResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateFileSendReceivedResponseData> {
    using R = UpdateFileSendReceivedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

// What the two bare-value decoders (upload file with stream, update send file to transfer) read from the reply.
// They return no record; this one only names the two keys and lets a server write such a reply.
struct BareStatusReply {
    ReplyValue ReturnStatus;
    ReplyValue error;
};

template<> struct KeyList<BareStatusReply> {
    using R = BareStatusReply;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::ReturnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<IsFileExistsInCloudResponseData> {
    using R = IsFileExistsInCloudResponseData;
    static constexpr std::tuple keys {
        Key { "IsExists", &R::isExists },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateFileReceivedResponseData> {
    using R = UpdateFileReceivedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::ReturnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<DeleteReceivedFileFromTransferResponseData> {
    using R = DeleteReceivedFileFromTransferResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::ReturnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<InsertFileResponseData> {
    using R = InsertFileResponseData;
    static constexpr std::tuple keys {
        Key { "FileID", &R::fileID },
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<InsertSharedFilesTransferResponseData> {
    using R = InsertSharedFilesTransferResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateBSUploadStreamStartedResponseData> {
    using R = UpdateBSUploadStreamStartedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateBSDownloadStreamStartedResponseData> {
    using R = UpdateBSDownloadStreamStartedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

template<> struct KeyList<UpdateBSDownloadStreamFailedResponseData> {
    using R = UpdateBSDownloadStreamFailedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

// No "error".
template<> struct KeyList<CheckFileExistsInDownloadsResponseData> {
    using R = CheckFileExistsInDownloadsResponseData;
    static constexpr std::tuple keys {
        Key { "ByteStartPos", &R::byteStartPos },
        Key { "ReturnStatus", &R::returnStatus },
    };
};

template<> struct KeyList<UpdateBSUploadStreamFailedResponseData> {
    using R = UpdateBSUploadStreamFailedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
        Key { "error", &R::error },
    };
};

// No "error".
template<> struct KeyList<CheckFileExistsInTransfersResponseData> {
    using R = CheckFileExistsInTransfersResponseData;
    static constexpr std::tuple keys {
        Key { "ByteStartPos", &R::byteStartPos },
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<UpdateBSSendStreamStartedResponseData> {
    using R = UpdateBSSendStreamStartedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<UpdateBSSendStreamFailedResponseData> {
    using R = UpdateBSSendStreamFailedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<UpdateBSReceiveStreamStartedResponseData> {
    using R = UpdateBSReceiveStreamStartedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<UpdateBSReceiveStreamFailedResponseData> {
    using R = UpdateBSReceiveStreamFailedResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<GetTopFileDeleteResponseData> {
    using R = GetTopFileDeleteResponseData;
    static constexpr std::tuple keys {
        Key { "DeleteRequestID", &R::deleteRequestID },
        Key { "FilePath", &R::filePath },
        Key { "ReturnStatus", &R::returnStatus },
    };
};

// No "error".
template<> struct KeyList<UpdateBSFileDeleteResponseData> {
    using R = UpdateBSFileDeleteResponseData;
    static constexpr std::tuple keys {
        Key { "ReturnStatus", &R::returnStatus },
    };
};

}
