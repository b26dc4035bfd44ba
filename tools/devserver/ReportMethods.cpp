// What computers report: their status, their errors, the changes of their synced folder, single files and
// changes in shared folders.

#include "devserver/FileChanges.h"
#include "devserver/MethodSupport.h"
#include "devserver/Methods.h"
#include "messages/QueryKeys.h"
#include "messages/WireCodec.h"
#include "platform/Json.h"

#include <string>
#include <vector>

namespace devserver {

UpdateComputerStatusResponseData updateComputerStatus(Tables& tables, const UpdateComputerStatusQuery& query)
{
    UpdateComputerStatusResponseData reply;
    tables.db.prepare("UPDATE computers SET status_time = coalesce(?1, status_time), "
                      "version_number = coalesce(?2, version_number) WHERE computer_id = ?3")
        .bindAll(query.dateTime, query.versionNumber, query.computerId.value_or(""))
        .run();
    if (tables.db.changes() == 0)
        return setStatus(reply, false, "no computer " + query.computerId.value_or(""));
    // The version the server offers is the one the computer has: there is no newer one here.
    reply.VersionNumber = text(query.versionNumber.value_or(""));
    return setStatus(reply, true);
}

LogErrorResponseData logError(Tables& tables, const LogErrorQuery& query)
{
    tables.db.prepare("INSERT INTO error_log (error_class, error_method, error_message, computer_id, user_id) "
                      "VALUES (coalesce(?1, ''), coalesce(?2, ''), coalesce(?3, ''), coalesce(?4, ''), coalesce(?5, ''))")
        .bindAll(query.errorClass, query.errorMethod, query.errorMessage, textOf(query.computerId), textOf(query.userId))
        .run();
    return statusReply<LogErrorResponseData>(true);
}

std::vector<SyncFilesInTableAndCloudResponseData> syncFilesInTableAndCloud(
    Tables& tables, const std::vector<SyncFilesInTableAndCloudQuery>& changes)
{
    std::vector<SyncFilesInTableAndCloudResponseData> replies;
    replies.reserve(changes.size());
    for (const auto& change : changes) {
        const auto result = applyChange(tables.files, change);
        // The change's own base-system file id goes back, so that the client can find the entry it belongs to.
        replies.push_back({ text(result.fileId), text(result.applied ? "0" : "1"),
            text(textOf(change.baseSystemFileID).value_or("")) });
    }
    return replies;
}

namespace {

    // A shared item as the client names it: "1*<path>*<size in KB>*<time>*<is-file>", the path relative to the shared
    // folder's owner id. Another text is a plain path without attributes.
    struct InsertedItem {
        std::string path;
        FileAttributes attributes;
    };

    InsertedItem insertedItem(const std::string& fullPath)
    {
        std::vector<std::string> fields;
        for (std::size_t start = 0;;) {
            std::size_t star = fullPath.find('*', start);
            fields.push_back(fullPath.substr(start, star == std::string::npos ? std::string::npos : star - start));
            if (star == std::string::npos)
                break;
            start = star + 1;
        }
        if (fields.size() != 5 || fields[1].empty())
            return { fullPath, {} };
        return { fields[1], { .isFile = fields[4], .fileSize = fields[2], .modifiedDate = fields[3], .baseSystemFileId = std::nullopt } };
    }

}

InsertFileResponseData insertFile(Tables& tables, const InsertFileQuery& query)
{
    InsertFileResponseData reply;
    const Text computerId = textOf(query.computerID);
    if (!isGiven(computerId) || !isGiven(query.fullPath))
        return setStatus(reply, false, "a computer and a path are required");
    const InsertedItem item = insertedItem(*query.fullPath);
    reply.fileID = text(tables.files.put(*computerId, item.path, item.attributes));
    return setStatus(reply, true);
}

InsertSharedFilesTransferResponseData insertSharedFilesTransfer(
    Tables& tables, const InsertSharedFilesTransferQuery& query)
{
    // Kept as the request record's JSON, as it came.
    tables.db.prepare("INSERT INTO shared_changes (computer_id, record) VALUES (coalesce(?1, ''), ?2)")
        .bindAll(textOf(query.computerID), platform::writeJson(messages::encode(query)))
        .run();
    return statusReply<InsertSharedFilesTransferResponseData>(true);
}

}
