// Uploads.svc: files the server wants a computer to upload, queued through the admin interface. An upload is
// "pending" until the computer starts its stream ("started"), which ends in "done" (the computer's update) or
// "failed"; the top of a computer's queue is its oldest pending or failed upload.

#include "devserver/MethodSupport.h"
#include "devserver/Methods.h"

namespace devserver {

namespace {

constexpr std::string_view uploads = "uploads";
constexpr std::string_view uploadId = "file_upload_id";

// The top of a computer's upload queue.
sqlite::Statement topUpload(Tables& tables, std::string_view columns, const Text& computer)
{
    return oldestEntry(tables, uploads, columns, "to_computer_id", computer, "('pending', 'failed')");
}

}

GetTopFileUploadResponseData getTopFileUpload(Tables& tables, const GetTopFileUploadQuery& query)
{
    GetTopFileUploadResponseData reply;
    reply.toComputerId = text(query.toComputerId.value_or(""));
    auto top = topUpload(tables,
        "attachment, file_name, file_upload_id, is_file, server_path, transit_upload_path, state = 'failed'",
        query.toComputerId);
    if (!top.step())
        return setStatus(reply, false, "no upload queued for computer " + query.toComputerId.value_or(""));
    reply.attachment = text(top.text(0));
    reply.fileName = text(top.text(1));
    reply.fileUploadId = text(top.integer(2));
    reply.isFile = text(top.text(3));
    reply.serverPath = text(top.text(4));
    reply.transitUploadPath = text(top.text(5));
    // "1" when the upload was tried before and failed.
    reply.uploadProcessed = text(top.integer(6) ? "1" : "0");
    return setStatus(reply, true);
}

std::string topFileUploadContent(Tables& tables, const GetTopFileUploadQuery& query)
{
    auto top = topUpload(tables, "content", query.toComputerId);
    return top.step() ? top.text(0) : std::string();
}

UpdateBSUploadStreamStartedResponseData updateBSUploadStreamStarted(
    Tables& tables, const UpdateBSUploadStreamStartedQuery& query)
{
    return stateReply<UpdateBSUploadStreamStartedResponseData>(tables, uploads, uploadId, query.fileUploadId, "started");
}

UpdateBSUploadStreamFailedResponseData updateBSUploadStreamFailed(
    Tables& tables, const UpdateBSUploadStreamFailedQuery& query)
{
    return stateReply<UpdateBSUploadStreamFailedResponseData>(tables, uploads, uploadId, query.fileUploadId, "failed");
}

UpdateFileUploadResponseData updateFileUpload(Tables& tables, const UpdateFileUploadQuery& query)
{
    auto reply = stateReply<UpdateFileUploadResponseData>(tables, uploads, uploadId, query.fileUploadId, "done");
    tables.db.prepare("UPDATE uploads SET file_name = coalesce(?1, file_name), server_path = coalesce(?2, server_path), "
                      "transit_upload_path = coalesce(?3, transit_upload_path) WHERE file_upload_id = ?4")
        .bindAll(query.fileName, query.serverPath, query.transitUploadPath, query.fileUploadId.value_or(""))
        .run();
    return reply;
}

}
