// Downloads.svc: files the server wants a computer to send (download requests) and files it wants deleted, both
// queued through the admin interface, and the bytes that computers send with the stream upload. States as for
// uploads: "pending", "started", "done", "failed".

#include "devserver/MethodSupport.h"
#include "devserver/Methods.h"

namespace devserver {

namespace {

constexpr std::string_view downloads = "downloads";
constexpr std::string_view requestId = "file_request_id";

}

GetTopFileRequestResponseData getTopFileRequest(Tables& tables, const GetTopFileRequestQuery& query)
{
    GetTopFileRequestResponseData reply;
    auto top = oldestEntry(tables, downloads,
        "file_path, file_request_id, transit_download_path, from_shared, file_id, byte_start_pos", "from_computer_id",
        query.fromComputerID, "('pending', 'failed')");
    if (!top.step())
        return setStatus(reply, false, "no download requested from computer " + query.fromComputerID.value_or(""));
    reply.filePath = text(top.text(0));
    reply.fileRequestID = text(top.integer(1));
    reply.TransitDownloadPath = text(top.text(2));
    reply.sharedFlag = text(top.text(3));
    reply.ownerFileID = text(top.text(4));
    reply.byteStartPos = text(top.text(5));
    return setStatus(reply, true);
}

UpdateFileRequestResponseData updateFileRequest(Tables& tables, const UpdateFileRequestQuery& query)
{
    auto reply = stateReply<UpdateFileRequestResponseData>(tables, downloads, requestId, query.fileRequestId, "done");
    tables.db.prepare("UPDATE downloads SET attachment = coalesce(?1, attachment) WHERE file_request_id = ?2")
        .bindAll(query.attachment, query.fileRequestId.value_or(""))
        .run();
    return reply;
}

UpdateFileRequestResponseData receiveFileRequestStream(
    Tables& tables, const UpdateFileRequestQuery& query, std::string_view content)
{
    if (!isGiven(query.fileRequestId))
        return statusReply<UpdateFileRequestResponseData>(false, "the stream has no request id");
    tables.db.prepare("INSERT INTO received_streams (file_path, transit_download_path, file_request_id, content) "
                      "VALUES (coalesce(?1, ''), coalesce(?2, ''), ?3, ?4)")
        .bindAll(query.filePath, query.transitDownloadPath, *query.fileRequestId)
        .bindBlob(4, content)
        .run();
    // A stream for a queued request completes it; one for a request the server does not know is kept all the same.
    setState(tables, downloads, requestId, query.fileRequestId, "done");
    return statusReply<UpdateFileRequestResponseData>(true);
}

UpdateBSDownloadStreamStartedResponseData updateBSDownloadStreamStarted(
    Tables& tables, const UpdateBSDownloadStreamStartedQuery& query)
{
    return stateReply<UpdateBSDownloadStreamStartedResponseData>(
        tables, downloads, requestId, query.fileRequestId, "started");
}

UpdateBSDownloadStreamFailedResponseData updateBSDownloadStreamFailed(
    Tables& tables, const UpdateBSDownloadStreamFailedQuery& query)
{
    return stateReply<UpdateBSDownloadStreamFailedResponseData>(
        tables, downloads, requestId, query.fileRequestId, "failed");
}

CheckFileExistsInDownloadsResponseData checkFileExistsInDownloads(
    Tables& tables, const CheckFileExistsInDownloadsQuery& query)
{
    CheckFileExistsInDownloadsResponseData reply;
    auto latest = tables.db.prepare(
        "SELECT length(content) FROM received_streams WHERE file_path = ?1 ORDER BY id DESC LIMIT 1");
    latest.bindAll(query.filePath.value_or(""));
    const bool found = latest.step();
    // Where a resumed transfer would start: after the bytes already received.
    reply.byteStartPos = text(found ? latest.integer(0) : 0);
    return setStatus(reply, found);
}

GetTopFileDeleteResponseData getTopFileDeleteRequest(Tables& tables, const GetTopFileDeleteRequestQuery& query)
{
    GetTopFileDeleteResponseData reply;
    auto top = oldestEntry(tables, "delete_requests", "delete_request_id, file_path", "from_computer_id",
        query.fromComputerID, "('pending')");
    if (!top.step())
        return setStatus(reply, false);
    reply.deleteRequestID = text(top.integer(0));
    reply.filePath = text(top.text(1));
    return setStatus(reply, true);
}

UpdateBSFileDeleteResponseData updateBSFileDeleted(Tables& tables, const UpdateBSFileDeletedQuery& query)
{
    return stateReply<UpdateBSFileDeleteResponseData>(
        tables, "delete_requests", "delete_request_id", query.deleteRequestID, "done");
}

}
