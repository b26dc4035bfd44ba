#pragma once

// The keys of the get-shared-files-transfer-data reply and of its four kinds of element, each with the property
// it sets, in the order the decoder reads them. Both spellings of the file-table path are required:
// "FullPathfromFileTable" in files to transfer, "FullPathFromFileTable" in files received from transfers.

#include "messages/KeyList.h"
#include "messages/SharedTransfer.h"

#include <tuple>

namespace messages {

template<> struct KeyList<FileToTransfer> {
    using R = FileToTransfer;
    static constexpr std::tuple keys {
        Key { "KorbanholdPath", &R::korbanholdPath },
        Key { "ChangeType", &R::changeType },
        Key { "FromCloud", &R::fromCloud },
        Key { "FromComputerID", &R::fromComputerId },
        Key { "FullPath", &R::fullPath },
        Key { "FullPathfromFileTable", &R::fullPathfromFileTable },
        Key { "IsFile", &R::isFile },
        Key { "IsOwnerToSubscriber", &R::isOwnerToSubscriber },
        Key { "NewFullPath", &R::fullPathNew },
        Key { "OwnerFileID", &R::ownerFileID },
        Key { "PrevFolderFileID", &R::prevFolderFileId },
        Key { "SharedFileTransferID", &R::sharedFileTransferId },
        Key { "ToCloud", &R::toCloud },
        Key { "ToComputerID", &R::toComputerId },
        Key { "UserComputerID", &R::userComputerId },
        Key { "XMLFileID", &R::xmlFileId },
    };
};

template<> struct KeyList<OwnerComputers> {
    using R = OwnerComputers;
    static constexpr std::tuple keys {
        Key { "KorbanholdPath", &R::korbanholdPath },
        Key { "CloudPath", &R::cloudPath },
        Key { "ComputerID", &R::computerId },
        Key { "IsAdmin", &R::isAdmin },
        Key { "IsCloud", &R::isCloud },
        Key { "MailID", &R::mailId },
        Key { "NickName", &R::nickName },
        Key { "Status", &R::status },
        Key { "UserComputerMapID", &R::userComputerMapId },
        Key { "UserID", &R::userId },
    };
};

template<> struct KeyList<RecFileFromTransfer> {
    using R = RecFileFromTransfer;
    static constexpr std::tuple keys {
        Key { "ChangeType", &R::changeType },
        Key { "FromCloud", &R::fromCloud },
        Key { "FromComputerID", &R::fromComputerId },
        Key { "FullPath", &R::fullPath },
        Key { "FullPathFromFileTable", &R::fullPathFromFileTable },
        Key { "IsFile", &R::isFile },
        Key { "IsOwnerToSubscriber", &R::isOwnerToSubscriber },
        Key { "NewFullPath", &R::fullPathNew },
        Key { "NickName", &R::nickName },
        Key { "OwnerFileID", &R::ownerFileId },
        Key { "PrevFolderFileID", &R::prevFolderFileId },
        Key { "SavedFileID", &R::savedFileId },
        Key { "SharedFileTransferID", &R::sharedFileTransferId },
        Key { "SharedFolderFileID", &R::sharedFolderFileId },
        Key { "ToCloud", &R::toCloud },
        Key { "UserComputerID", &R::userComputerId },
        Key { "XMLFileID", &R::xmlFileId },
        Key { "ToComputerID", &R::toComputerId },
    };
};

template<> struct KeyList<SharedfoldersWithStatus> {
    using R = SharedfoldersWithStatus;
    static constexpr std::tuple keys {
        Key { "FileID", &R::fileId },
        Key { "SharedStatus", &R::sharedStatus },
    };
};

// The reply object. The four lists exist before any member is read; the members are then read in this order,
// the status between the third and the fourth list, and the reply's own "error" is not read.
template<> struct KeyList<GetSharedFilesTransferDataResponseData> {
    using R = GetSharedFilesTransferDataResponseData;
    static constexpr std::tuple keys {
        Key { "FileToTransfer", &R::fileToTransferArray },
        Key { "OwnerComputers", &R::OwnerComputersArray },
        Key { "RecFileFromTransfer", &R::RecFileFromTransferArray },
        Key { "ReturnStatus", &R::ReturnStatus },
        Key { "SharedfoldersWithStatus", &R::SharedfoldersWithStatusArray },
    };
};

}
