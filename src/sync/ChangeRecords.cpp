#include "sync/ChangeRecords.h"

#include "sync/Raises.h"
#include "sync/RecordKeys.h"
#include "sync/RecordValues.h"

#include <array>
#include <initializer_list>
#include <optional>

namespace engine {

using platform::Value;

namespace {

    std::optional<Value> optionalOf(const Value* value) { return value ? std::optional<Value>(*value) : std::nullopt; }

    struct Field {
        Field(std::string_view key, const Value* value) : key(key), value(optionalOf(value)) { }
        Field(std::string_view key, std::optional<Value> value) : key(key), value(std::move(value)) { }
        std::string_view key;
        std::optional<Value> value;
    };

    Value recordOf(std::initializer_list<Field> fields)
    {
        // Exactly the room the record needs: a first sync holds one record per item, kept by the table and the
        // change list alike.
        Value record = Value::dictionary();
        record.reserveEntries(fields.size());
        for (const auto& field : fields)
            record.setObject(field.value, field.key); // an absent value raises, naming the key
        return record;
    }

    // The fixed texts records carry, made once.
    struct Texts {
        Value zero { "0" }, one { "1" }, empty { "" };
        Value created { changeTypes::created }, modified { changeTypes::modified }, renamed { changeTypes::renamed },
            deleted { changeTypes::deleted };
    };

    const Texts& texts()
    {
        static const Texts fixed;
        return fixed;
    }

}

namespace {
    constexpr std::array<RecordKey, 10> normalisedKeys {
        RecordKey::FileID,
        RecordKey::BaseSystemFileID,
        RecordKey::BaseSystemFilePath,
        RecordKey::Remove,
        RecordKey::ChangeType,
        RecordKey::OldPath,
        RecordKey::IsFile,
        RecordKey::FileSize,
        RecordKey::ComputerID,
        RecordKey::ModifiedDate,
    };
}

Value normalisedRecord(const EntryView& entry)
{
    Value record = Value::dictionary();
    record.reserveEntries(normalisedKeys.size());
    for (RecordKey key : normalisedKeys)
        record.setObject(entry.find(key), nameOf(key));
    return record;
}

void requireNormalisedFields(const EntryView& entry)
{
    for (RecordKey key : normalisedKeys) {
        if (!entry.find(key).has_value())
            raiseMissingValue(nameOf(key));
    }
}

Value seenRecord(const EntryView& entry, const Value* computerId)
{
    Value fileID = cleanedFileID(entry.find(RecordKey::FileID));
    return recordOf({
        { keys::baseSystemFileID, entry.find(keys::baseSystemFileID) },
        { keys::baseSystemFilePath, entry.find(keys::baseSystemFilePath) },
        { keys::changeType, entry.find(keys::changeType) },
        { keys::oldPath, entry.find(keys::oldPath) },
        { keys::isFile, entry.find(keys::isFile) },
        { keys::fileSize, entry.find(keys::fileSize) },
        { keys::modifiedDate, entry.find(keys::modifiedDate) },
        { keys::fileID, &fileID },
        { keys::computerID, computerId },
        { keys::remove, &texts().zero },
    });
}

Value createdRecord(const ItemTexts& item, const Value* computerId)
{
    return recordOf({
        { keys::baseSystemFileID, &item.fileNumber },
        { keys::baseSystemFilePath, &item.path },
        { keys::remove, &texts().zero },
        { keys::changeType, &texts().created },
        { keys::oldPath, &texts().empty },
        { keys::isFile, &item.isFile },
        { keys::fileSize, &item.fileSize },
        { keys::fileID, &texts().empty },
        { keys::computerID, computerId },
        { keys::modifiedDate, item.modifiedDate ? &*item.modifiedDate : nullptr },
    });
}

Value modifiedRecord(const ItemTexts& item, const Value& fileID, const Value* computerId)
{
    return recordOf({
        { keys::baseSystemFileID, &item.fileNumber },
        { keys::baseSystemFilePath, &item.path },
        { keys::remove, &texts().zero },
        { keys::changeType, &texts().modified },
        { keys::oldPath, &texts().empty },
        { keys::isFile, &item.isFile },
        { keys::fileSize, &item.fileSize },
        { keys::fileID, &fileID },
        { keys::computerID, computerId },
        { keys::modifiedDate, item.modifiedDate ? &*item.modifiedDate : nullptr },
    });
}

Value renamedRecord(const EntryView& entry, const Value& newPath, const Value* computerId)
{
    Value fileID = cleanedFileID(entry.find(RecordKey::FileID));
    return recordOf({
        { keys::baseSystemFileID, entry.find(keys::baseSystemFileID) },
        { keys::baseSystemFilePath, &newPath },
        { keys::oldPath, entry.find(keys::baseSystemFilePath) },
        { keys::changeType, &texts().renamed },
        { keys::remove, &texts().zero },
        { keys::isFile, entry.find(keys::isFile) },
        { keys::fileSize, entry.find(keys::fileSize) },
        { keys::modifiedDate, entry.find(keys::modifiedDate) },
        { keys::fileID, &fileID },
        { keys::computerID, computerId },
    });
}

Value movedAwayRecord(const EntryView& entry, std::string_view removeMark, const Value* computerId)
{
    Value mark(removeMark);
    Value fileID = cleanedFileID(entry.find(RecordKey::FileID));
    return recordOf({
        { keys::baseSystemFileID, entry.find(keys::baseSystemFileID) },
        { keys::baseSystemFilePath, entry.find(keys::baseSystemFilePath) },
        { keys::oldPath, entry.find(keys::oldPath) },
        { keys::isFile, entry.find(keys::isFile) },
        { keys::fileSize, entry.find(keys::fileSize) },
        { keys::modifiedDate, entry.find(keys::modifiedDate) },
        { keys::fileID, &fileID },
        { keys::changeType, &texts().deleted },
        { keys::remove, &mark },
        { keys::computerID, computerId },
    });
}

Value deletedRecord(const EntryView& entry, const Value* computerId)
{
    Value fileID = cleanedFileID(entry.find(RecordKey::FileID));
    return recordOf({
        { keys::baseSystemFileID, entry.find(keys::baseSystemFileID) },
        { keys::baseSystemFilePath, entry.find(keys::baseSystemFilePath) },
        { keys::changeType, &texts().deleted },
        { keys::oldPath, &texts().empty },
        { keys::isFile, entry.find(keys::isFile) },
        { keys::fileSize, entry.find(keys::fileSize) },
        { keys::computerID, computerId },
        { keys::fileID, &fileID },
        { keys::modifiedDate, entry.find(keys::modifiedDate) },
    });
}

}
