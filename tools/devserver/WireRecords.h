#pragma once

// Request and reply bodies as the client's records, through the key tables of src/messages: the server decodes a
// request with the same key list that the client's encoder uses, and encodes a reply with the list that the
// client's decoder reads. Nothing here names a key.

#include "devserver/Exchange.h"
#include "messages/Operations.h"
#include "platform/Value.h"

#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace devserver {

namespace wire {

template<typename Record>
bool hasKey(std::string_view key)
{
    return std::apply(
        [&](const auto&... entry) { return ((entry.key == key) || ...); }, messages::KeyList<Record>::keys);
}

// Whether the record's property under `key` is text; the others (those the client fills by copying a value as it
// stands, and the file number of a shared rename) take a value of any kind.
template<typename Record>
bool isTextKey(std::string_view key)
{
    return std::apply(
        [&](const auto&... entry) {
            return ((entry.key == key
                        && std::is_same_v<std::remove_cvref_t<decltype(std::declval<Record>().*entry.property)>,
                            messages::Text>)
                || ...);
        },
        messages::KeyList<Record>::keys);
}

// Refuses an object that is not what the record's key list describes: another kind of value, a key the list does
// not have, or for a text property a value that is neither text nor null (the client sends the null object for
// some absent texts).
template<typename Record>
void checkRecord(const platform::Value& object, const std::string& where)
{
    if (!object.isDictionary())
        throw BadRequest(where + " is not a JSON object");
    for (const auto& [key, value] : object.entries()) {
        if (!hasKey<Record>(key))
            throw BadRequest(where + " has the unknown key \"" + key + "\"");
        if (!value.isString() && !value.isNull() && isTextKey<Record>(key))
            throw BadRequest("\"" + key + "\" of " + where + " is not text");
    }
}

inline void fill(messages::ReplyValue& property, std::string_view key)
{
    if (!property)
        property = key == "error" ? platform::Value::null() : platform::Value("");
}

template<typename Record>
void complete(Record& record);

template<typename Element>
void fill(std::vector<Element>& list, std::string_view)
{
    for (auto& element : list)
        complete(element);
}

// Gives every key of the record's list a value: the empty text, and null for "error", where nothing was set.
template<typename Record>
void complete(Record& record)
{
    std::apply([&](const auto&... entry) { (fill(record.*entry.property, entry.key), ...); },
        messages::KeyList<Record>::keys);
}

}

// The request record (or list of records) that a JSON body holds. Throws BadRequest for a body of another shape.
template<typename Query>
Query decodeRequest(const platform::Value& body)
{
    if constexpr (messages::IsRecordList<Query>::value) {
        if (!body.isArray())
            throw BadRequest("the body must be a JSON array of records");
        for (std::size_t index = 0; index < body.count(); ++index)
            wire::checkRecord<typename Query::value_type>(body.at(index), "record " + std::to_string(index));
    } else {
        wire::checkRecord<Query>(body, "the body");
    }
    return messages::decode<Query>(&body);
}

// The JSON of a reply record (or list of records), carrying every key of its list.
template<typename Response>
platform::Value encodeReply(Response reply)
{
    if constexpr (messages::IsRecordList<Response>::value)
        wire::fill(reply, "");
    else
        wire::complete(reply);
    return messages::encode(reply);
}

}
