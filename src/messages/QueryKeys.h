#pragma once

// The keys of every request body, each with the property it is read from, in the order the encoder inserts them.
// These keys are the protocol towards the server and are spelled exactly as it expects them, irregularities
// included: "Password" from passWord, "IsExists" from isFileExists, "StrXMLFileID", and "FullPathFromFileTable"
// (upload with stream, send file to transfer) against "FullPathfromFileTable" (check file exists in transfers).

#include "messages/KeyList.h"
#include "messages/Queries.h"

#include <string_view>
#include <tuple>

namespace messages {

template<> struct KeyList<UserRegistrationQuery> {
    using R = UserRegistrationQuery;
    static constexpr std::tuple keys {
        Key { "MailID", &R::mailId },
        Key { "Password", &R::passWord },
        Key { "FirstName", &R::firstName },
        Key { "LastName", &R::lastName },
        Key { "NickName", &R::nickName },
    };
};

template<> struct KeyList<RegisterComputerQuery> {
    using R = RegisterComputerQuery;
    static constexpr std::tuple keys {
        Key { "UserID", &R::userId },
        Key { "KorbanholdPath", &R::korbanholdPath },
    };
};

template<> struct KeyList<SendActivationMailQuery> {
    using R = SendActivationMailQuery;
    static constexpr std::tuple keys {
        Key { "MailID", &R::mailId },
        Key { "UserID", &R::userId },
    };
};

template<> struct KeyList<OneTimeSyncOwnersSharedFoldersQuery> {
    using R = OneTimeSyncOwnersSharedFoldersQuery;
    static constexpr std::tuple keys {
        Key { "ComputerID", &R::computerId },
        Key { "UserID", &R::userId },
    };
};

template<> struct KeyList<GetTopFileUploadQuery> {
    using R = GetTopFileUploadQuery;
    static constexpr std::tuple keys {
        Key { "ToComputerID", &R::toComputerId },
    };
};

template<> struct KeyList<CheckUserMailActivationStatusQuery> {
    using R = CheckUserMailActivationStatusQuery;
    static constexpr std::tuple keys {
        Key { "UserID", &R::userId },
    };
};

template<> struct KeyList<UpdateFileUploadQuery> {
    using R = UpdateFileUploadQuery;
    static constexpr std::tuple keys {
        Key { "FileUploadID", &R::fileUploadId },
        Key { "FileName", &R::fileName },
        Key { "ServerPath", &R::serverPath },
        Key { "TransitUploadPath", &R::transitUploadPath },
    };
};

template<> struct KeyList<GetTopFileRequestQuery> {
    using R = GetTopFileRequestQuery;
    static constexpr std::tuple keys {
        Key { "FromComputerID", &R::fromComputerID },
    };
};

template<> struct KeyList<UpdateFileRequestQuery> {
    using R = UpdateFileRequestQuery;
    static constexpr std::tuple keys {
        Key { "FilePath", &R::filePath },
        Key { "FileRequestID", &R::fileRequestId },
        Key { "TransitDownloadPath", &R::transitDownloadPath },
        Key { "Attachment", &R::attachment },
    };
};

// The batch report's body is one object whose only key, "syncData", holds the array of encoded change records;
// the transport sends that array alone.
inline constexpr std::string_view syncDataKey = "syncData";

template<> struct KeyList<SyncFilesInTableAndCloudQuery> {
    using R = SyncFilesInTableAndCloudQuery;
    static constexpr std::tuple keys {
        Key { "ChangeType", &R::changeType },
        Key { "OldFullPath", &R::oldFullPath },
        Key { "FullPath", &R::fullPath },
        Key { "FileSize", &R::fileSize },
        Key { "KorbanholdPath", &R::korbanholdPath },
        Key { "IsFile", &R::isFile },
        Key { "ComputerID", &R::computerId },
        Key { "FileModifiedDate", &R::fileModifiedDate },
        Key { "BaseSystemFileID", &R::baseSystemFileID },
        Key { "FileID", &R::fileID },
    };
};

template<> struct KeyList<UpdateComputerStatusQuery> {
    using R = UpdateComputerStatusQuery;
    static constexpr std::tuple keys {
        Key { "ComputerID", &R::computerId },
        Key { "DateTime", &R::dateTime },
        Key { "VersionNumber", &R::versionNumber },
    };
};

template<> struct KeyList<OneTimeSyncFilesQuery> {
    using R = OneTimeSyncFilesQuery;
    static constexpr std::tuple keys {
        Key { "AllFiles", &R::allFiles },
        Key { "ComputerID", &R::computerId },
        Key { "KorbanholdPath", &R::korbanholdPath },
    };
};

template<> struct KeyList<TransferFilesFromCloudToBaseSystemQuery> {
    using R = TransferFilesFromCloudToBaseSystemQuery;
    static constexpr std::tuple keys {
        Key { "ComputerID", &R::computerID },
        Key { "KorbanholdPath", &R::korbanholdPath },
    };
};

template<> struct KeyList<SendPasswordToMailIdQuery> {
    using R = SendPasswordToMailIdQuery;
    static constexpr std::tuple keys {
        Key { "MailID", &R::mailId },
    };
};

template<> struct KeyList<LogErrorQuery> {
    using R = LogErrorQuery;
    static constexpr std::tuple keys {
        Key { "ErrorClass", &R::errorClass },
        Key { "ErrorMethod", &R::errorMethod },
        Key { "ErrorMessage", &R::errorMessage },
        Key { "ComputerID", &R::computerId },
        Key { "UserID", &R::userId },
    };
};

template<> struct KeyList<GetSharedFilesTransferDataQuery> {
    using R = GetSharedFilesTransferDataQuery;
    static constexpr std::tuple keys {
        Key { "UserID", &R::userId },
        Key { "ComputerID", &R::computerId },
    };
};

template<> struct KeyList<UpdateFileExistQuery> {
    using R = UpdateFileExistQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::SharedFileTransferID },
    };
};

template<> struct KeyList<UpdateFileSendReceivedQuery> {
    using R = UpdateFileSendReceivedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::SharedFileTransferID },
    };
};

template<> struct KeyList<UploadFileWithStreamQuery> {
    using R = UploadFileWithStreamQuery;
    static constexpr std::tuple keys {
        Key { "ComputerID", &R::computerID },
        Key { "KorbanholdPath", &R::korbanholdPath },
        Key { "FullPathFromFileTable", &R::fullPathFromFileTable },
    };
};

template<> struct KeyList<UpdateSendFileToTransferQuery> {
    using R = UpdateSendFileToTransferQuery;
    static constexpr std::tuple keys {
        Key { "ChangeType", &R::ChangeType },
        Key { "SharedFileTransferID", &R::SharedFileTransferID },
        Key { "FullPathFromFileTable", &R::FullPathFromFileTable },
        Key { "ToCloud", &R::ToCloud },
        Key { "IsFile", &R::IsFile },
        Key { "ToComputerID", &R::ToComputerID },
        Key { "NewFullPath", &R::NewFullPath },
        Key { "OwnerFileID", &R::OwnerFileID },
        Key { "FromComputerID", &R::FromComputerID },
        Key { "KorbanholdPath", &R::KorbanholdPath },
        Key { "FileNameToSend", &R::FileNameToSend },
        Key { "Length", &R::Length },
    };
};

template<> struct KeyList<IsFileExistsInCloudQuery> {
    using R = IsFileExistsInCloudQuery;
    static constexpr std::tuple keys {
        Key { "StrFullPath", &R::strFullPath },
    };
};

template<> struct KeyList<UpdateFileReceivedQuery> {
    using R = UpdateFileReceivedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
        Key { "IsExists", &R::isFileExists },
    };
};

template<> struct KeyList<DeleteReceivedFileFromTransferQuery> {
    using R = DeleteReceivedFileFromTransferQuery;
    static constexpr std::tuple keys {
        Key { "IsExists", &R::isFileExists },
        Key { "SavedFileID", &R::savedFileID },
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
    };
};

template<> struct KeyList<InsertFileQuery> {
    using R = InsertFileQuery;
    static constexpr std::tuple keys {
        Key { "FullPath", &R::fullPath },
        Key { "ComputerID", &R::computerID },
    };
};

template<> struct KeyList<InsertSharedFilesTransferQuery> {
    using R = InsertSharedFilesTransferQuery;
    static constexpr std::tuple keys {
        Key { "FileID", &R::fileID },
        Key { "ComputerID", &R::computerID },
        Key { "UserComputerID", &R::userComputerID },
        Key { "OldFullPath", &R::oldFullPath },
        Key { "FullPath", &R::fullPath },
        Key { "IsFile", &R::isFile },
        Key { "BaseSystemFileID", &R::baseSystemFileID },
        Key { "PrevFolderFileID", &R::prevFolderFileID },
        Key { "ChangeType", &R::changeType },
        Key { "StrXMLFileID", &R::StrXMLFileID },
    };
};

template<> struct KeyList<UpdateBSUploadStreamStartedQuery> {
    using R = UpdateBSUploadStreamStartedQuery;
    static constexpr std::tuple keys {
        Key { "FileUploadID", &R::fileUploadId },
    };
};

template<> struct KeyList<UpdateBSUploadStreamFailedQuery> {
    using R = UpdateBSUploadStreamFailedQuery;
    static constexpr std::tuple keys {
        Key { "FileUploadID", &R::fileUploadId },
    };
};

template<> struct KeyList<UpdateBSDownloadStreamStartedQuery> {
    using R = UpdateBSDownloadStreamStartedQuery;
    static constexpr std::tuple keys {
        Key { "FileRequestID", &R::fileRequestId },
    };
};

template<> struct KeyList<UpdateBSDownloadStreamFailedQuery> {
    using R = UpdateBSDownloadStreamFailedQuery;
    static constexpr std::tuple keys {
        Key { "FileRequestID", &R::fileRequestId },
    };
};

template<> struct KeyList<CheckFileExistsInDownloadsQuery> {
    using R = CheckFileExistsInDownloadsQuery;
    static constexpr std::tuple keys {
        Key { "FilePath", &R::filePath },
    };
};

template<> struct KeyList<CheckFileExistsInTransfersQuery> {
    using R = CheckFileExistsInTransfersQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
        Key { "FullPathfromFileTable", &R::fullPathfromFileTable },
    };
};

template<> struct KeyList<UpdateBSSendStreamStartedQuery> {
    using R = UpdateBSSendStreamStartedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
    };
};

template<> struct KeyList<UpdateBSSendStreamFailedQuery> {
    using R = UpdateBSSendStreamFailedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
    };
};

template<> struct KeyList<UpdateBSReceiveStreamStartedQuery> {
    using R = UpdateBSReceiveStreamStartedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
    };
};

template<> struct KeyList<UpdateBSReceiveStreamFailedQuery> {
    using R = UpdateBSReceiveStreamFailedQuery;
    static constexpr std::tuple keys {
        Key { "SharedFileTransferID", &R::sharedFileTransferID },
    };
};

template<> struct KeyList<GetTopFileDeleteRequestQuery> {
    using R = GetTopFileDeleteRequestQuery;
    static constexpr std::tuple keys {
        Key { "FromComputerID", &R::fromComputerID },
    };
};

template<> struct KeyList<UpdateBSFileDeletedQuery> {
    using R = UpdateBSFileDeletedQuery;
    static constexpr std::tuple keys {
        Key { "DeleteRequestID", &R::deleteRequestID },
    };
};

}
