#include "sync/RefusedChanges.h"

#include "platform/Log.h"
#include "sync/RecordKeys.h"

namespace engine {

using platform::Value;

namespace {

    bool hasText(const Value& record, std::string_view key, const Value* text)
    {
        const Value* value = record.find(key);
        return text && value && *value == *text;
    }

    std::optional<std::size_t> firstEntryWith(const Value& table, const Value* path, const Value* fileNumber = nullptr)
    {
        for (std::size_t position = 0; position < table.count(); ++position) {
            const Value& entry = table.at(position);
            if (hasText(entry, keys::baseSystemFilePath, path)
                && (!fileNumber || hasText(entry, keys::baseSystemFileID, fileNumber)))
                return position;
        }
        return std::nullopt;
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

void leaveRefusedChangesUndone(Value& table, const Value& refused, const RenameSet& splitRenames)
{
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
        auto position = firstEntryWith(table, path, *typeText == changeTypes::created ? change.find(keys::baseSystemFileID) : nullptr);
        if (!position)
            continue;
        if (*typeText == changeTypes::created) {
            table.removeAt(*position);
        } else if (*typeText == changeTypes::modified) {
            table.mutableAt(*position).setObject(Value(""), keys::fileSize);
            table.mutableAt(*position).setObject(Value(""), keys::modifiedDate);
        } else if (*typeText == changeTypes::renamed) {
            if (const Value* oldPath = change.find(keys::oldPath))
                table.mutableAt(*position).setObject(*oldPath, keys::baseSystemFilePath);
            auto rename = renameOf(change);
            if (rename && splitRenames.contains(*rename)) {
                platform::log("The server refused the rename of %@ to %@ twice; it is reported as %@ deleted and %@ "
                              "created",
                    rename->first, rename->second, rename->first, rename->second);
                table.mutableAt(*position).setObject(Value(""), keys::baseSystemFileID);
            }
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
