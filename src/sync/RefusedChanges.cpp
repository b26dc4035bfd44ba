#include "sync/RefusedChanges.h"

#include "platform/Log.h"
#include "sync/RecordKeys.h"

#include <string_view>
#include <vector>

namespace engine {

using platform::Value;

namespace {

    bool holds(const EntryView& entry, RecordKey key, const Value& value)
    {
        const std::optional<Value> held = entry.find(key);
        return held && *held == value;
    }

    // The first entry whose path is `path` and, when `fileNumber` is given, whose file number is `fileNumber`.
    std::optional<std::size_t> firstEntryWith(WatchedTable& table, const Value* path, const Value* fileNumber)
    {
        if (!path)
            return std::nullopt;
        auto sameFileNumber = [&](const EntryView& entry) {
            return !fileNumber || holds(entry, RecordKey::BaseSystemFileID, *fileNumber);
        };
        if (const std::string* text = path->stringIf())
            return table.firstPositionWithPath(*text, sameFileNumber);
        // A path that is not a text comes from a record of another kind: such records are rare, and looked for one
        // by one.
        std::optional<std::size_t> first;
        table.forEachEntry([&](std::size_t position, const EntryView& entry) {
            if (!first && holds(entry, RecordKey::BaseSystemFilePath, *path) && sameFileNumber(entry))
                first = position;
        });
        return first;
    }

    // The text paths that the undoing of `refused` looks up or gives to an entry.
    std::vector<std::string_view> pathsOf(const Value& refused)
    {
        std::vector<std::string_view> paths;
        for (const Value& change : refused.elements()) {
            for (std::string_view key : { keys::baseSystemFilePath, keys::oldPath }) {
                const Value* path = change.find(key);
                if (path && path->isString())
                    paths.push_back(path->string());
            }
        }
        return paths;
    }

    const std::string* textOf(const Value& record, std::string_view key)
    {
        const Value* value = record.find(key);
        return value ? value->stringIf() : nullptr;
    }

    // The (old path, new path) of a "Renamed" record whose two paths are texts.
    std::optional<std::pair<std::string, std::string>> renameOf(const Value& change)
    {
        const std::string* type = textOf(change, keys::changeType);
        const std::string* oldPath = textOf(change, keys::oldPath);
        const std::string* newPath = textOf(change, keys::baseSystemFilePath);
        if (!type || *type != changeTypes::renamed || !oldPath || !newPath)
            return std::nullopt;
        return std::pair { *oldPath, *newPath };
    }

}

RenameSet RefusedRenames::refusedAgain(const Value& refused)
{
    RenameSet renames;
    for (const Value& change : refused.elements()) {
        if (auto rename = renameOf(change))
            renames.insert(std::move(*rename));
    }
    std::lock_guard lock(m_mutex);
    RenameSet again;
    for (const auto& rename : renames) {
        if (m_lastRefused.contains(rename))
            again.insert(rename);
    }
    m_lastRefused = std::move(renames);
    return again;
}

void leaveRefusedChangesUndone(WatchedTable& table, const Value& refused, const RenameSet& splitRenames)
{
    table.indexOnlyPaths(pathsOf(refused));
    for (const Value& change : refused.elements()) {
        const Value* type = change.find(keys::changeType);
        const std::string* typeText = type ? type->stringIf() : nullptr;
        if (!typeText)
            continue;
        const Value* path = change.find(keys::baseSystemFilePath);
        if (*typeText == changeTypes::deleted) {
            Value entry = change;
            entry.setObject(Value("1"), keys::remove);
            table.append(std::move(entry));
            continue;
        }
        const bool created = *typeText == changeTypes::created;
        auto position = firstEntryWith(table, path, created ? change.find(keys::baseSystemFileID) : nullptr);
        if (!position)
            continue;
        if (created) {
            table.remove(*position);
        } else if (*typeText == changeTypes::modified) {
            Value entry = table.at(*position).record();
            entry.setObject(Value(""), keys::fileSize);
            entry.setObject(Value(""), keys::modifiedDate);
            table.replace(*position, std::move(entry));
        } else if (*typeText == changeTypes::renamed) {
            Value entry = table.at(*position).record();
            const Value* oldPath = change.find(keys::oldPath);
            if (oldPath)
                entry.setObject(*oldPath, keys::baseSystemFilePath);
            auto rename = renameOf(change);
            const bool split = rename && splitRenames.contains(*rename);
            if (split) {
                platform::log("The server refused the rename of %@ to %@ twice; it is reported as %@ deleted and %@ "
                              "created",
                    rename->first, rename->second, rename->first, rename->second);
                entry.setObject(Value(""), keys::baseSystemFileID);
            }
            if (oldPath || split)
                table.replace(*position, std::move(entry));
        }
    }
}

bool isAcceptedReturnStatus(const std::optional<Value>& returnStatus)
{
    if (!returnStatus)
        return false;
    if (const std::string* text = returnStatus->stringIf())
        return *text == "0";
    const platform::Number* number = returnStatus->numberIf();
    return number && !number->isFloatingPoint() && number->int64Value() == 0;
}

}
