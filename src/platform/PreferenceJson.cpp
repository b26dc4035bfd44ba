#include "platform/PreferenceJson.h"

#include "platform/Base64Codec.h"

#include <optional>

namespace platform {

namespace {

constexpr std::string_view dateTag = "$date";
constexpr std::string_view dataTag = "$data";
constexpr std::string_view dictionaryTag = "$dictionary";

bool isTagName(std::string_view key) { return key == dateTag || key == dataTag || key == dictionaryTag; }

// A dictionary of one member named like a tag: read as a tag, and wrapped when written.
bool hasTagShape(const Value& value)
{
    return value.isDictionary() && value.count() == 1 && isTagName(value.entries().front().first);
}

// Applies `convert` to every element or entry of a container. Returns the changed container, or absent when no
// child changed, so that untouched subtrees stay shared with the original instead of being copied.
template<typename Convert>
std::optional<Value> convertChildren(const Value& value, Convert convert)
{
    std::optional<Value> result;
    if (value.isArray()) {
        for (std::size_t i = 0; i < value.count(); ++i) {
            if (auto replacement = convert(value.at(i))) {
                if (!result)
                    result = value;
                result->replaceAt(i, replacement);
            }
        }
    } else if (value.isDictionary()) {
        for (const auto& [key, child] : value.entries()) {
            if (auto replacement = convert(child)) {
                if (!result)
                    result = value;
                result->setObject(std::move(*replacement), key);
            }
        }
    }
    return result;
}

// The tagged form of `value`, or absent when it is its own JSON form.
std::optional<Value> toTaggedForm(const Value& value)
{
    switch (value.kind()) {
    case Value::Kind::Date:
        return Value::dictionary({ { std::string(dateTag), Value::real(value.dateValue()) } });
    case Value::Kind::Data:
        return Value::dictionary({ { std::string(dataTag), Value(encodeBase64(value.bytes().data(), value.bytes().size())) } });
    case Value::Kind::Dictionary: {
        auto converted = convertChildren(value, toTaggedForm);
        if (hasTagShape(value))
            return Value::dictionary({ { std::string(dictionaryTag), converted.value_or(value) } });
        return converted;
    }
    case Value::Kind::Array:
        return convertChildren(value, toTaggedForm);
    default:
        return std::nullopt;
    }
}

// The value that a tagged form stands for, or absent when `value` holds no tag.
std::optional<Value> fromTaggedForm(const Value& value)
{
    if (!hasTagShape(value))
        return convertChildren(value, fromTaggedForm);
    const auto& [tag, content] = value.entries().front();
    if (tag == dateTag) {
        if (!content.isNumber() || content.number().isBoolean())
            throw JsonError("A \"$date\" tag must hold a number of seconds since 1970");
        return Value::date(content.number().doubleValue());
    }
    if (tag == dataTag) {
        const auto* text = content.stringIf();
        auto bytes = text ? decodeBase64(*text) : std::nullopt;
        if (!bytes)
            throw JsonError("A \"$data\" tag must hold Base64 text");
        return Value::data(std::move(*bytes));
    }
    if (!content.isDictionary())
        throw JsonError("A \"$dictionary\" tag must hold an object");
    // The wrapped dictionary is taken as it stands; only its members may hold tags.
    return convertChildren(content, fromTaggedForm).value_or(content);
}

}

static bool isContainer(const Value& value) { return value.isArray() || value.isDictionary(); }

// A top-level tag stands for a date or data, which are fragments.
static void requireContainer(const Value& value, const JsonReadOptions& options)
{
    if (!options.allowFragments && !isContainer(value))
        throw JsonError("JSON text did not start with array or object and option to allow fragments not set.");
}

Value readPreferenceJson(std::string_view text, const JsonReadOptions& options)
{
    Value value = readJson(text, options);
    if (auto untagged = fromTaggedForm(value))
        value = std::move(*untagged);
    requireContainer(value, options);
    return value;
}

PreferenceStreamReader::PreferenceStreamReader(PreferenceListReceiver& receiver, const JsonReadOptions& options)
    : m_receiver(receiver)
    , m_options(options)
    , m_json(options, this)
{
}

void PreferenceStreamReader::beginList(std::optional<std::string_view> key)
{
    m_listKey = key;
    m_errors.erase(m_listKey);
    m_receiver.beginList(key);
}

void PreferenceStreamReader::element(Value element)
{
    if (m_errors.contains(m_listKey))
        return;
    try {
        auto untagged = fromTaggedForm(element);
        m_receiver.element(untagged ? *untagged : element);
    } catch (const JsonError&) {
        m_errors.emplace(m_listKey, std::current_exception());
    }
}

StreamedPreferences PreferenceStreamReader::finish()
{
    StreamedPreferences document { m_json.finish(), true };
    Value& value = document.value;
    const auto raiseErrorOf = [&](const std::optional<std::string>& key) {
        if (const auto error = m_errors.find(key); error != m_errors.end())
            std::rethrow_exception(error->second);
    };
    if (hasTagShape(value)) {
        // Read as the tag it is; a list cannot be the content of any tag.
        document.listsStreamed = false;
        value = fromTaggedForm(value).value_or(value);
    } else if (value.isDictionary()) {
        // The members in their order, as the whole reader reads their tags: the first malformed one raises.
        std::optional<Value> untagged;
        for (const auto& [key, member] : value.entries()) {
            if (member.isArray()) {
                raiseErrorOf(key);
            } else if (auto replacement = fromTaggedForm(member)) {
                if (!untagged)
                    untagged = value;
                untagged->setObject(std::move(*replacement), key);
            }
        }
        if (untagged)
            value = std::move(*untagged);
    } else if (value.isArray()) {
        raiseErrorOf(std::nullopt);
    }
    requireContainer(value, m_options);
    return document;
}

std::string writePreferenceJson(const Value& value, const JsonWriteOptions& options)
{
    if (!options.allowFragments && !isContainer(value))
        throw JsonError("Invalid top-level type in JSON write");
    const auto tagged = toTaggedForm(value);
    return writeJson(tagged.value_or(value), options);
}

}
