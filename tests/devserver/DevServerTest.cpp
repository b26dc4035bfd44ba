#include "devserver/DevServerTest.h"

namespace devservertest {

using platform::Value;

std::string textOf(const messages::ReplyValue& value)
{
    if (!value)
        return "(absent)";
    return value->isString() ? value->string() : value->description();
}

messages::SyncFilesInTableAndCloudQuery Change::toRecord() const
{
    // As the client fills a change: the old path is empty except for a rename.
    return { type, oldFullPath, fullPath, fileSize, "home\\u\\Korbanhold", isFile, computerId, "2024-05-01 10:00:00",
        baseSystemFileId, fileId };
}

Value Change::toValue() const { return batch({ *this }).at(0); }

Value batch(const std::vector<Change>& changes)
{
    std::vector<messages::SyncFilesInTableAndCloudQuery> records;
    for (const auto& change : changes)
        records.push_back(change.toRecord());
    return *messages::QueryParser::parseSyncFilesInTableAndCloudQuery(records).find("syncData");
}

HttpResult postBatch(const DevServerProcess& server, const std::vector<Change>& changes)
{
    return postJson(server.methodUrl(batchMethod), batch(changes));
}

std::map<std::string, long long> fileTable(const DevServerProcess& server, std::string_view computerId)
{
    std::map<std::string, long long> table;
    const auto rows = get(server.adminUrl("files?computer=" + std::string(computerId))).json();
    for (const auto& row : rows.elements())
        table[row.find("full_path")->string()] = row.find("file_id")->number().int64Value();
    return table;
}

std::vector<std::string> returnStatuses(const Value& reply)
{
    std::vector<std::string> statuses;
    for (const auto& element : reply.elements())
        statuses.push_back(element.find("ReturnStatus")->string());
    return statuses;
}

}
