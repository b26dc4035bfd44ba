#pragma once

// Checks of a record against the keys it must travel under, the keys written out by each test from the protocol,
// apart from the codec's own key lists, so that a misspelling in either shows up as a difference.

#include "messages/Queries.h"
#include "messages/Responses.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace messages::testing {

// One expected key of a request body and the property its value must come from: a text property, or the one that
// holds a value of any kind.
template<typename Query>
struct ExpectedKey {
    std::string key;
    std::variant<Text Query::*, AnyValue Query::*> property;
};

// Sets every listed property to a text naming its key, encodes, and expects exactly the listed keys, in order,
// each carrying its own property's text. The size check makes sure the list names every property of the record.
template<typename Query, typename EncodeOne>
void expectEncodedKeys(const char* record, EncodeOne encodeOne, const std::vector<ExpectedKey<Query>>& expected)
{
    SCOPED_TRACE(record);
    Query query;
    std::size_t listedSize = 0;
    std::vector<std::string> expectedKeys;
    for (const auto& expectation : expected) {
        std::visit(
            [&](auto property) {
                listedSize += sizeof(query.*property);
                if constexpr (std::is_same_v<std::remove_reference_t<decltype(query.*property)>, Text>)
                    query.*property = "value for " + expectation.key;
                else
                    query.*property = platform::Value("value for " + expectation.key);
            },
            expectation.property);
        expectedKeys.push_back(expectation.key);
    }
    EXPECT_EQ(sizeof(Query), listedSize) << "the list does not name every property";
    const platform::Value body = encodeOne(query);
    ASSERT_TRUE(body.isDictionary());
    EXPECT_EQ(body.keys(), expectedKeys);
    for (const auto& expectation : expected) {
        const platform::Value* value = body.find(expectation.key);
        ASSERT_NE(value, nullptr) << expectation.key;
        EXPECT_EQ(*value, platform::Value("value for " + expectation.key)) << expectation.key;
    }
}

template<typename Query>
void expectKeys(const char* record, platform::Value (*encoder)(const std::optional<Query>&),
    const std::vector<ExpectedKey<Query>>& expected)
{
    expectEncodedKeys<Query>(record, [&](const Query& query) { return encoder(query); }, expected);
}

// One key that a decoder must read and the property it must fill.
template<typename Reply>
struct ExpectedField {
    std::string key;
    ReplyValue Reply::*property;
};

// Whether the record's `error` is filled from the reply's "error", left absent by a decoder that never reads it,
// or not a property of the record at all.
enum ErrorRule { ErrorFromReply, ErrorNeverRead, NoError };

template<typename Reply>
void expectErrorRule(const Reply& decoded, ErrorRule rule, const platform::Value& sentError)
{
    if constexpr (requires { decoded.error; }) {
        if (rule == ErrorFromReply) {
            ASSERT_TRUE(decoded.error.has_value());
            EXPECT_EQ(*decoded.error, sentError);
        } else {
            EXPECT_EQ(rule, ErrorNeverRead);
            EXPECT_FALSE(decoded.error.has_value());
        }
    } else {
        EXPECT_EQ(rule, NoError);
    }
}

// A reply holding every listed key (each with a text naming it), "error" and an unknown key fills each listed
// property with its own key's value and follows the record's error rule; a reply holding none leaves everything
// absent. The size check makes sure the list, with `error`, names every property of the record.
template<typename Reply, typename DecodeOne>
void expectDecodedKeys(
    const char* record, DecodeOne decodeOne, const std::vector<ExpectedField<Reply>>& expected, ErrorRule rule)
{
    SCOPED_TRACE(record);
    EXPECT_EQ(sizeof(Reply), (expected.size() + (rule == NoError ? 0 : 1)) * sizeof(ReplyValue))
        << "the list does not name every property";
    const platform::Value sentError = platform::Value::dictionary({ { "Message", "server failed" } });
    platform::Value reply = platform::Value::dictionary({ { "NotAKeyOfAnyRecord", "ignored" } });
    for (const auto& field : expected)
        reply.setObject(platform::Value("value of " + field.key), field.key);
    reply.setObject(sentError, "error");

    const Reply full = decodeOne(reply);
    for (const auto& [key, property] : expected) {
        ASSERT_TRUE((full.*property).has_value()) << key;
        EXPECT_EQ(*(full.*property), platform::Value("value of " + key)) << key;
    }
    expectErrorRule(full, rule, sentError);

    const Reply empty = decodeOne(platform::Value::dictionary());
    for (const auto& [key, property] : expected)
        EXPECT_FALSE((empty.*property).has_value()) << key;
    if constexpr (requires { empty.error; }) {
        EXPECT_FALSE(empty.error.has_value());
    }
}

}
