#pragma once

// The reply of the get-shared-files-transfer-data method: the pending exchange of shared folders between the
// computers of different users, as four lists of element records and a status. Element properties hold what the
// reply's element held under their keys (never converted); each element record has an `error` that the decoder
// never fills. The keys are in SharedTransferKeys.h.

#include "messages/Responses.h"

#include <vector>

namespace messages {

// A file that this computer has to send.
struct FileToTransfer {
    ReplyValue korbanholdPath;
    ReplyValue changeType;
    ReplyValue fromCloud;
    ReplyValue fromComputerId;
    ReplyValue fullPath;
    ReplyValue fullPathfromFileTable;
    ReplyValue isFile;
    ReplyValue isOwnerToSubscriber;
    ReplyValue fullPathNew;
    ReplyValue ownerFileID;
    ReplyValue prevFolderFileId;
    ReplyValue sharedFileTransferId;
    ReplyValue toCloud;
    ReplyValue toComputerId;
    ReplyValue userComputerId;
    ReplyValue xmlFileId;
    ReplyValue error;
};

// A computer of a shared folder's owner.
struct OwnerComputers {
    ReplyValue korbanholdPath;
    ReplyValue cloudPath;
    ReplyValue computerId;
    ReplyValue isAdmin;
    ReplyValue isCloud;
    ReplyValue mailId;
    ReplyValue nickName;
    ReplyValue status;
    ReplyValue userComputerMapId;
    ReplyValue userId;
    ReplyValue error;
};

// A file that this computer has to receive.
struct RecFileFromTransfer {
    ReplyValue changeType;
    ReplyValue fromCloud;
    ReplyValue fromComputerId;
    ReplyValue fullPath;
    ReplyValue fullPathFromFileTable;
    ReplyValue isFile;
    ReplyValue isOwnerToSubscriber;
    ReplyValue fullPathNew;
    ReplyValue nickName;
    ReplyValue ownerFileId;
    ReplyValue prevFolderFileId;
    ReplyValue savedFileId;
    ReplyValue sharedFileTransferId;
    ReplyValue sharedFolderFileId;
    ReplyValue toCloud;
    ReplyValue userComputerId;
    ReplyValue xmlFileId;
    ReplyValue toComputerId;
    ReplyValue error;
};

// A shared folder and whether its share is in force.
struct SharedfoldersWithStatus {
    ReplyValue fileId;
    ReplyValue sharedStatus;
    ReplyValue error;
};

// The lists keep the reply's order; a list whose member is missing from the reply is empty.
struct GetSharedFilesTransferDataResponseData {
    std::vector<FileToTransfer> fileToTransferArray;
    std::vector<OwnerComputers> OwnerComputersArray;
    std::vector<RecFileFromTransfer> RecFileFromTransferArray;
    std::vector<SharedfoldersWithStatus> SharedfoldersWithStatusArray;
    ReplyValue ReturnStatus;
};

}
