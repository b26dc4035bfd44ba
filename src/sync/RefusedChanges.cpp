#include "sync/RefusedChanges.h"

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

}

void leaveRefusedChangesUndone(Value& table, const Value& refused)
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
