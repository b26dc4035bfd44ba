#include "devserver/BatchMethod.h"

#include "devserver/FileChanges.h"

#include <httplib.h>

#include <algorithm>
#include <array>

namespace devserver {

using platform::Value;

// PENDING: the keys of a change record are to come from the wire-message tables of src/messages (one list shared
// with the client's encoder); this list stands in for them until that library is available.
static constexpr std::array<std::string_view, 10> changeKeys { "ChangeType", "OldFullPath", "FullPath", "FileSize",
    "KorbanholdPath", "IsFile", "ComputerID", "FileModifiedDate", "BaseSystemFileID", "FileID" };

static std::string changeName(std::size_t index) { return "change " + std::to_string(index); }

// A key's text; the null object (which the client sends for an old path it does not have) counts as absent.
static std::optional<std::string> textOf(const Value& change, std::string_view key, std::size_t index)
{
    const Value* value = change.find(key);
    if (!value || value->isNull())
        return std::nullopt;
    if (!value->isString())
        throw BadRequest("\"" + std::string(key) + "\" of " + changeName(index) + " is not text");
    return value->string();
}

static FileChange decodeChange(const Value& change, std::size_t index)
{
    if (!change.isDictionary())
        throw BadRequest(changeName(index) + " is not a JSON object");
    for (const auto& [key, value] : change.entries()) {
        if (std::find(changeKeys.begin(), changeKeys.end(), key) == changeKeys.end())
            throw BadRequest(changeName(index) + " has the unknown key \"" + key + "\"");
    }
    return { textOf(change, "ChangeType", index), textOf(change, "ComputerID", index),
        textOf(change, "OldFullPath", index), textOf(change, "FullPath", index), textOf(change, "FileID", index),
        { textOf(change, "IsFile", index), textOf(change, "FileSize", index), textOf(change, "FileModifiedDate", index),
            textOf(change, "BaseSystemFileID", index) } };
}

static std::vector<FileChange> decodeChanges(const Value& body)
{
    if (!body.isArray())
        throw BadRequest("the body must be a JSON array of changes");
    std::vector<FileChange> changes;
    changes.reserve(body.count());
    for (std::size_t index = 0; index < body.count(); ++index)
        changes.push_back(decodeChange(body.at(index), index));
    return changes;
}

Reply syncFilesInTableAndCloud(Store& store, const httplib::Request& request)
{
    const auto changes = decodeChanges(jsonBody(request));
    const auto results = store.transaction([&](Tables& tables) {
        std::vector<ChangeResult> applied;
        applied.reserve(changes.size());
        for (const auto& change : changes)
            applied.push_back(applyChange(tables.files, change));
        return applied;
    });

    platform::Array replies;
    replies.reserve(results.size());
    for (std::size_t index = 0; index < results.size(); ++index) {
        replies.push_back(Value::dictionary({ { "FileID", results[index].fileId },
            { "ReturnStatus", results[index].applied ? "0" : "1" },
            { "BaseSystemFileID", changes[index].attributes.baseSystemFileId.value_or("") } }));
    }
    return jsonReply(Value::arrayOf(std::move(replies)));
}

}
