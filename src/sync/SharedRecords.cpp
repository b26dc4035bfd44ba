#include "sync/SharedRecords.h"

namespace engine {

using platform::Value;

namespace {
    bool matches(const Value& record, std::string_view key, const Value* value)
    {
        const Value* field = record.find(key);
        return value ? field && *field == *value : !field;
    }
}

const Value* firstRecordWith(const Value& records, std::string_view key, const Value* value)
{
    for (const Value& record : records.elements()) {
        if (matches(record, key, value))
            return &record;
    }
    return nullptr;
}

void forEachRecordWith(Value& records, std::string_view key, const Value* value, const std::function<void(Value&)>& change)
{
    for (std::size_t index = 0; index < records.count(); ++index) {
        if (matches(records.at(index), key, value))
            change(records.mutableAt(index));
    }
}

}
