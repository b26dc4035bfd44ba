#include "devserver/DevServerTest.h"

namespace devservertest {

using platform::Value;

Value Change::toValue() const
{
    // As the client encodes a change: the old path is empty except for a rename.
    return Value::dictionary({ { "ChangeType", type }, { "OldFullPath", oldFullPath }, { "FullPath", fullPath },
        { "FileSize", "1" }, { "KorbanholdPath", "home\\u\\Korbanhold" }, { "IsFile", isFile },
        { "ComputerID", computerId }, { "FileModifiedDate", "2024-05-01 10:00:00" },
        { "BaseSystemFileID", baseSystemFileId }, { "FileID", fileId } });
}

Value batch(const std::vector<Change>& changes)
{
    auto list = Value::array();
    for (const auto& change : changes)
        list.append(change.toValue());
    return list;
}

HttpResult postBatch(const ServerProcess& server, const std::vector<Change>& changes)
{
    return postJson(server.methodUrl(batchMethod), batch(changes));
}

std::map<std::string, long long> fileTable(const ServerProcess& server, std::string_view computerId)
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
