#pragma once

// The one encoder and the one decoder of every wire record, driven by the record's key list (KeyList.h).
//
// encode(record) gives a dictionary with one entry per key whose property is present, in key-list order: an absent
// property leaves its key out (never null, never ""), values are copied as they are. encode(list) gives an array
// of such dictionaries in the list's order.
//
// decode<Record>(json) gives a record whose properties hold what `json` held under their keys: a missing key
// leaves the property absent, unknown keys are ignored, and a value of any kind is kept as it is, except that a
// text property (request records) takes text only. A `json` that is absent or not a dictionary gives a record
// with every property absent. decode<std::vector<Record>>(json) decodes each element of an array; anything but an
// array gives an empty list.
//
// Records that hold lists of records (the shared-transfer reply) are encoded and decoded through the same rules.

#include "messages/KeyList.h"
#include "platform/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

namespace messages {

template<typename T>
struct IsRecordList : std::false_type { };
template<typename Element>
struct IsRecordList<std::vector<Element>> : std::true_type { };

template<typename RecordOrList>
platform::Value encode(const RecordOrList& value);
template<typename RecordOrList>
RecordOrList decode(const platform::Value* json);

namespace codec {

inline void store(platform::Value& dictionary, std::string_view key, const std::optional<std::string>& text)
{
    if (text)
        dictionary.setObject(platform::Value(*text), key);
}

inline void store(platform::Value& dictionary, std::string_view key, const std::optional<platform::Value>& value)
{
    if (value)
        dictionary.setObject(*value, key);
}

template<typename Element>
void store(platform::Value& dictionary, std::string_view key, const std::vector<Element>& list)
{
    dictionary.setObject(encode(list), key);
}

inline void load(std::optional<std::string>& text, const platform::Value* found)
{
    if (const std::string* string = found ? found->stringIf() : nullptr)
        text = *string;
}

inline void load(std::optional<platform::Value>& value, const platform::Value* found)
{
    if (found)
        value = *found;
}

template<typename Element>
void load(std::vector<Element>& list, const platform::Value* found)
{
    list = decode<std::vector<Element>>(found);
}

}

template<typename RecordOrList>
platform::Value encode(const RecordOrList& value)
{
    if constexpr (IsRecordList<RecordOrList>::value) {
        platform::Value array = platform::Value::array();
        array.reserve(value.size());
        for (const auto& element : value)
            array.append(encode(element));
        return array;
    } else {
        platform::Value dictionary = platform::Value::dictionary();
        std::apply([&](const auto&... key) { (codec::store(dictionary, key.key, value.*key.property), ...); },
            KeyList<RecordOrList>::keys);
        return dictionary;
    }
}

template<typename RecordOrList>
RecordOrList decode(const platform::Value* json)
{
    RecordOrList result {};
    if constexpr (IsRecordList<RecordOrList>::value) {
        if (json && json->isArray()) {
            result.reserve(json->count());
            for (const platform::Value& element : json->elements())
                result.push_back(decode<typename RecordOrList::value_type>(&element));
        }
    } else if (json && json->isDictionary()) {
        std::apply([&](const auto&... key) { (codec::load(result.*key.property, json->find(key.key)), ...); },
            KeyList<RecordOrList>::keys);
    }
    return result;
}

template<typename RecordOrList>
RecordOrList decode(const std::optional<platform::Value>& json)
{
    return decode<RecordOrList>(json ? &*json : nullptr);
}

}
