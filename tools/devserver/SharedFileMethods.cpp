// MAC/SharedFiles.svc: files passed between the computers of different users through shared folders. Shared
// folders and transfers are filled through the admin interface; a transfer is listed for its computer until it
// reaches one of the final states "sent", "send-received", "received" or "deleted".

#include "devserver/MethodSupport.h"
#include "devserver/Methods.h"
#include "messages/SharedTransferKeys.h"
#include "messages/WireCodec.h"
#include "platform/Json.h"

namespace devserver {

namespace {

constexpr std::string_view transfers = "shared_transfers";
constexpr std::string_view transferId = "shared_file_transfer_id";

// The open transfers of one kind for a user's computer, each as the element record its stored JSON describes,
// with the transfer's id.
template<typename Element>
std::vector<Element> openTransfers(Tables& tables, std::string_view kind, const GetSharedFilesTransferDataQuery& query)
{
    auto rows = tables.db.prepare("SELECT shared_file_transfer_id, record FROM shared_transfers WHERE kind = ?1 AND "
                                  "user_id = ?2 AND computer_id = ?3 AND "
                                  "state NOT IN ('sent', 'send-received', 'received', 'deleted') "
                                  "ORDER BY shared_file_transfer_id");
    rows.bindAll(kind, query.userId.value_or(""), query.computerId.value_or(""));
    std::vector<Element> elements;
    while (rows.step()) {
        auto element = messages::decode<Element>(platform::readJson(rows.text(1)));
        element.sharedFileTransferId = text(rows.integer(0));
        elements.push_back(std::move(element));
    }
    return elements;
}

// The computers of the users who share a folder with `userId`.
std::vector<OwnerComputers> ownerComputers(Tables& tables, const Text& userId)
{
    auto rows = tables.db.prepare(
        "SELECT c.korbanhold_path, c.computer_id, c.is_cloud, u.mail_id, u.nick_name, u.user_id FROM computers c "
        "JOIN users u ON u.user_id = c.user_id WHERE c.user_id IN "
        "(SELECT owner_user_id FROM shared_files WHERE user_id = ?1) ORDER BY c.computer_id");
    rows.bindAll(userId.value_or(""));
    std::vector<OwnerComputers> owners;
    while (rows.step()) {
        OwnerComputers owner;
        const bool isCloud = rows.integer(2) != 0;
        owner.korbanholdPath = text(rows.text(0));
        owner.cloudPath = text(isCloud ? rows.text(0) : "");
        owner.computerId = text(rows.integer(1));
        owner.isAdmin = text("0");
        owner.isCloud = text(isCloud ? "1" : "0");
        owner.mailId = text(rows.text(3));
        owner.nickName = text(rows.text(4));
        owner.status = text("1");
        owner.userComputerMapId = text(rows.integer(1));
        owner.userId = text(rows.integer(5));
        owners.push_back(std::move(owner));
    }
    return owners;
}

std::vector<SharedfoldersWithStatus> sharedFolders(Tables& tables, const Text& userId)
{
    auto rows = tables.db.prepare(
        "SELECT file_id, shared_status FROM shared_files WHERE user_id = ?1 ORDER BY shared_file_id");
    rows.bindAll(userId.value_or(""));
    std::vector<SharedfoldersWithStatus> folders;
    while (rows.step())
        folders.push_back({ text(rows.text(0)), text(rows.text(1)), std::nullopt });
    return folders;
}

template<typename Reply>
Reply transferStateReply(Tables& tables, const Text& id, std::string_view state)
{
    return stateReply<Reply>(tables, transfers, transferId, id, state);
}

}

GetSharedFilesTransferDataResponseData getSharedFilesTransferData(
    Tables& tables, const GetSharedFilesTransferDataQuery& query)
{
    GetSharedFilesTransferDataResponseData reply;
    reply.fileToTransferArray = openTransfers<FileToTransfer>(tables, "FileToTransfer", query);
    reply.OwnerComputersArray = ownerComputers(tables, query.userId);
    reply.RecFileFromTransferArray = openTransfers<RecFileFromTransfer>(tables, "RecFileFromTransfer", query);
    reply.SharedfoldersWithStatusArray = sharedFolders(tables, query.userId);
    return setStatus(reply, true);
}

UpdateFileExistResponseData updateFileExist(Tables& tables, const UpdateFileExistQuery& query)
{
    return transferStateReply<UpdateFileExistResponseData>(tables, query.SharedFileTransferID, "file-exists");
}

UpdateFileSendReceivedResponseData updateFileSendReceived(Tables& tables, const UpdateFileSendReceivedQuery& query)
{
    return transferStateReply<UpdateFileSendReceivedResponseData>(tables, query.SharedFileTransferID, "send-received");
}

BareStatusReply uploadFileWithStream(Tables& tables, const UploadFileWithStreamQuery& query)
{
    const bool known = isGiven(query.computerID) && isGiven(query.fullPathFromFileTable)
        && tables.files.find(*query.computerID, *query.fullPathFromFileTable);
    return statusReply<BareStatusReply>(known, "the computer's file table does not hold that path");
}

BareStatusReply updateSendFileToTransfer(Tables& tables, const UpdateSendFileToTransferQuery& query)
{
    return transferStateReply<BareStatusReply>(tables, query.SharedFileTransferID, "sent");
}

IsFileExistsInCloudResponseData isFileExistsInCloud(Tables& tables, const IsFileExistsInCloudQuery& query)
{
    IsFileExistsInCloudResponseData reply;
    reply.isExists = text(isGiven(query.strFullPath) && tables.files.anyComputerHas(*query.strFullPath) ? "1" : "0");
    return setStatus(reply, true);
}

UpdateFileReceivedResponseData updateFileReceived(Tables& tables, const UpdateFileReceivedQuery& query)
{
    return transferStateReply<UpdateFileReceivedResponseData>(tables, query.sharedFileTransferID, "received");
}

DeleteReceivedFileFromTransferResponseData deleteReceivedFileFromTransfer(
    Tables& tables, const DeleteReceivedFileFromTransferQuery& query)
{
    return transferStateReply<DeleteReceivedFileFromTransferResponseData>(tables, query.sharedFileTransferID, "deleted");
}

CheckFileExistsInTransfersResponseData checkFileExistsInTransfers(
    Tables& tables, const CheckFileExistsInTransfersQuery& query)
{
    CheckFileExistsInTransfersResponseData reply;
    auto row = tables.db.prepare("SELECT 1 FROM shared_transfers WHERE shared_file_transfer_id = ?1");
    row.bindAll(query.sharedFileTransferID.value_or(""));
    // Nothing of a transfer's file is kept here, so a transfer always starts at its first byte.
    reply.byteStartPos = text("0");
    return setStatus(reply, row.step(), "no transfer " + query.sharedFileTransferID.value_or(""));
}

UpdateBSSendStreamStartedResponseData updateBSSendStreamStarted(
    Tables& tables, const UpdateBSSendStreamStartedQuery& query)
{
    return transferStateReply<UpdateBSSendStreamStartedResponseData>(tables, query.sharedFileTransferID, "send-started");
}

UpdateBSSendStreamFailedResponseData updateBSSendStreamFailed(Tables& tables, const UpdateBSSendStreamFailedQuery& query)
{
    return transferStateReply<UpdateBSSendStreamFailedResponseData>(tables, query.sharedFileTransferID, "send-failed");
}

UpdateBSReceiveStreamStartedResponseData updateBSReceiveStreamStarted(
    Tables& tables, const UpdateBSReceiveStreamStartedQuery& query)
{
    return transferStateReply<UpdateBSReceiveStreamStartedResponseData>(
        tables, query.sharedFileTransferID, "receive-started");
}

UpdateBSReceiveStreamFailedResponseData updateBSReceiveStreamFailed(
    Tables& tables, const UpdateBSReceiveStreamFailedQuery& query)
{
    return transferStateReply<UpdateBSReceiveStreamFailedResponseData>(
        tables, query.sharedFileTransferID, "receive-failed");
}

}
