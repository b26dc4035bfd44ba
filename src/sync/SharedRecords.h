#pragma once

// Finding shared-file records by one of their fields, as the list's filters "(Field == %@)" match: a record matches
// when it holds a value equal to the one given, and an absent value given matches the records that lack the field.
// A record that is not a dictionary raises.

#include "platform/Value.h"

#include <functional>
#include <string_view>

namespace engine {

const platform::Value* firstRecordWith(const platform::Value& records, std::string_view key, const platform::Value* value);

// Calls `change` on every record of `records` that matches, in list order.
void forEachRecordWith(platform::Value& records, std::string_view key, const platform::Value* value,
    const std::function<void(platform::Value& record)>& change);

}
