#pragma once

// The request records: one plain record per server method, filled by the caller and turned into the request body
// by QueryParser. Most properties are text, absent until set; an absent property leaves its key out of the request.
// The properties that the engine fills by copying a value from its records or settings hold a value of any kind
// (AnyValue), because the engine copies values as they stand: a number travels as a JSON number and the null object
// as JSON null. Among them is the file number of a shared rename (InsertSharedFilesTransferQuery::baseSystemFileID),
// which the engine sends as the number the file attributes give.
// Property names keep the protocol's own spellings (computerId beside computerID, upper-case names in three
// records); the keys they travel under are in QueryKeys.h.

#include "platform/Value.h"

#include <optional>
#include <string>

namespace messages {

// A text property of a request record: absent, or the text the caller put in (flags, sizes and dates included).
using Text = std::optional<std::string>;
// A property that holds a value of any kind, sent as it is.
using AnyValue = std::optional<platform::Value>;

struct UserRegistrationQuery {
    Text mailId;
    Text passWord;
    Text firstName;
    Text lastName;
    Text nickName;
};

struct RegisterComputerQuery {
    Text userId;
    Text korbanholdPath;
};

struct SendActivationMailQuery {
    Text mailId;
    Text userId;
};

struct OneTimeSyncOwnersSharedFoldersQuery {
    Text computerId;
    Text userId;
};

struct GetTopFileUploadQuery {
    Text toComputerId;
};

struct CheckUserMailActivationStatusQuery {
    Text userId;
};

struct UpdateFileUploadQuery {
    Text fileUploadId;
    Text fileName;
    Text serverPath;
    Text transitUploadPath;
};

struct GetTopFileRequestQuery {
    Text fromComputerID;
};

struct UpdateFileRequestQuery {
    Text filePath;
    Text fileRequestId;
    Text transitDownloadPath;
    Text attachment;
};

// One change record of the batch report; the batch is a list of these.
struct SyncFilesInTableAndCloudQuery {
    AnyValue changeType;
    AnyValue oldFullPath;
    Text fullPath;
    AnyValue fileSize;
    Text korbanholdPath;
    AnyValue isFile;
    AnyValue computerId;
    AnyValue fileModifiedDate;
    AnyValue baseSystemFileID;
    AnyValue fileID;
};

struct UpdateComputerStatusQuery {
    Text computerId;
    Text dateTime;
    Text versionNumber;
};

struct OneTimeSyncFilesQuery {
    Text allFiles;
    Text computerId;
    Text korbanholdPath;
};

struct TransferFilesFromCloudToBaseSystemQuery {
    Text computerID;
    Text korbanholdPath;
};

struct SendPasswordToMailIdQuery {
    Text mailId;
};

struct LogErrorQuery {
    Text errorClass;
    Text errorMethod;
    Text errorMessage;
    AnyValue computerId;
    AnyValue userId;
};

struct GetSharedFilesTransferDataQuery {
    Text userId;
    Text computerId;
};

struct UpdateFileExistQuery {
    Text SharedFileTransferID;
};

struct UpdateFileSendReceivedQuery {
    Text SharedFileTransferID;
};

struct UploadFileWithStreamQuery {
    Text computerID;
    Text korbanholdPath;
    Text fullPathFromFileTable;
};

struct UpdateSendFileToTransferQuery {
    Text ChangeType;
    Text SharedFileTransferID;
    Text FullPathFromFileTable;
    Text ToCloud;
    Text IsFile;
    Text ToComputerID;
    Text NewFullPath;
    Text OwnerFileID;
    Text FromComputerID;
    Text KorbanholdPath;
    Text FileNameToSend;
    Text Length;
};

struct IsFileExistsInCloudQuery {
    Text strFullPath;
};

struct UpdateFileReceivedQuery {
    Text sharedFileTransferID;
    Text isFileExists;
};

struct DeleteReceivedFileFromTransferQuery {
    Text isFileExists;
    Text savedFileID;
    Text sharedFileTransferID;
};

struct InsertFileQuery {
    Text fullPath;
    AnyValue computerID;
};

struct InsertSharedFilesTransferQuery {
    AnyValue fileID;
    AnyValue computerID;
    AnyValue userComputerID;
    Text oldFullPath;
    Text fullPath;
    AnyValue isFile;
    AnyValue baseSystemFileID;
    AnyValue prevFolderFileID;
    Text changeType;
    AnyValue StrXMLFileID;
};

struct UpdateBSUploadStreamStartedQuery {
    Text fileUploadId;
};

struct UpdateBSUploadStreamFailedQuery {
    Text fileUploadId;
};

struct UpdateBSDownloadStreamStartedQuery {
    Text fileRequestId;
};

struct UpdateBSDownloadStreamFailedQuery {
    Text fileRequestId;
};

struct CheckFileExistsInDownloadsQuery {
    Text filePath;
};

struct CheckFileExistsInTransfersQuery {
    Text sharedFileTransferID;
    Text fullPathfromFileTable;
};

struct UpdateBSSendStreamStartedQuery {
    Text sharedFileTransferID;
};

struct UpdateBSSendStreamFailedQuery {
    Text sharedFileTransferID;
};

struct UpdateBSReceiveStreamStartedQuery {
    Text sharedFileTransferID;
};

struct UpdateBSReceiveStreamFailedQuery {
    Text sharedFileTransferID;
};

struct GetTopFileDeleteRequestQuery {
    Text fromComputerID;
};

struct UpdateBSFileDeletedQuery {
    Text deleteRequestID;
};

}
