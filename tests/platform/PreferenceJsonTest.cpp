#include "platform/PreferenceJson.h"

#include <gtest/gtest.h>

#include <cmath>

using platform::Bytes;
using platform::JsonError;
using platform::readPreferenceJson;
using platform::Value;
using platform::writePreferenceJson;

namespace {

Value roundTrip(const Value& value) { return readPreferenceJson(writePreferenceJson(value)); }

}

TEST(PreferenceJson, ADateIsWrittenAsATaggedNumberOfSecondsAndReadsBackAsADate)
{
    const Value domain = Value::dictionary({ { "when", Value::date(1700000000.25) } });
    EXPECT_EQ(writePreferenceJson(domain), R"({"when":{"$date":1700000000.25}})");
    const Value read = roundTrip(domain);
    ASSERT_TRUE(read.find("when")->isDate());
    EXPECT_EQ(read.find("when")->dateValue(), 1700000000.25);
}

TEST(PreferenceJson, DataIsWrittenAsTaggedBase64AndReadsBackByteForByte)
{
    for (std::size_t length = 0; length < 8; ++length) {
        Bytes bytes;
        for (std::size_t i = 0; i < length; ++i)
            bytes.push_back(static_cast<std::uint8_t>(0xF0 + i * 7));
        const Value read = roundTrip(Value::array({ Value::data(bytes) }));
        ASSERT_TRUE(read.at(0).isData()) << length;
        EXPECT_EQ(read.at(0).bytes(), bytes) << length;
    }
    EXPECT_EQ(writePreferenceJson(Value::array({ Value::data({ 'M', 'a', 'n' }) })), R"([{"$data":"TWFu"}])");
    EXPECT_EQ(writePreferenceJson(Value::array({ Value::data({ 'M' }) })), R"([{"$data":"TQ=="}])");
}

TEST(PreferenceJson, ADictionaryShapedLikeATagIsWrappedAndReadsBackAsTheSameDictionary)
{
    const Value lookalike = Value::dictionary({ { "$date", Value("not a date") } });
    const Value domain = Value::dictionary({ { "entry", lookalike } });
    EXPECT_EQ(writePreferenceJson(domain), R"({"entry":{"$dictionary":{"$date":"not a date"}}})");
    const Value read = roundTrip(domain);
    ASSERT_TRUE(read.find("entry")->isDictionary());
    EXPECT_EQ(read, domain);
}

TEST(PreferenceJson, TagsInsideAWrappedDictionaryAreStillRead)
{
    const Value domain = Value::dictionary({ { "$data", Value::date(12.5) } });
    const Value read = roundTrip(Value::array({ domain }));
    ASSERT_TRUE(read.at(0).isDictionary());
    ASSERT_TRUE(read.at(0).find("$data")->isDate());
    EXPECT_EQ(read.at(0).find("$data")->dateValue(), 12.5);
}

TEST(PreferenceJson, AnObjectWithATagNameAmongOtherKeysIsAPlainDictionary)
{
    const Value read = readPreferenceJson(R"({"$date":1,"other":2})");
    ASSERT_TRUE(read.isDictionary());
    EXPECT_EQ(read.count(), 2u);
}

TEST(PreferenceJson, AMalformedTagIsAnError)
{
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$date":"yesterday"}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$date":true}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$data":"@@@@"}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$data":"TWF"}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$data":"T==="}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$data":7}})"), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"d":{"$dictionary":[1]}})"), JsonError);
}

TEST(PreferenceJson, ATopLevelDateOrDataIsAFragment)
{
    EXPECT_THROW(writePreferenceJson(Value::date(1)), JsonError);
    EXPECT_THROW(readPreferenceJson(R"({"$date":1})"), JsonError);
    EXPECT_EQ(writePreferenceJson(Value::date(1), { .allowFragments = true }), R"({"$date":1})");
    EXPECT_TRUE(readPreferenceJson(R"({"$date":1})", { .allowFragments = true }).isDate());
}

TEST(PreferenceJson, PlainValuesKeepTheirKinds)
{
    const Value domain = Value::dictionary({
        { "text", Value("/Users/me/Korbanhold \xC3\xA9") },
        { "empty", Value("") },
        { "null", Value::null() },
        { "yes", Value::boolean(true) },
        { "negative", Value::integer(-5) },
        { "large", Value::unsignedInteger(18446744073709551615ull) },
        { "real", Value::real(0.1) },
        { "list", Value::array({ Value("1"), Value::array() }) },
    });
    const Value read = roundTrip(domain);
    EXPECT_EQ(read, domain);
    EXPECT_EQ(read.keys(), domain.keys());
    EXPECT_TRUE(read.find("null")->isNull());
    EXPECT_TRUE(read.find("yes")->number().isBoolean());
    EXPECT_TRUE(read.find("large")->number().isUnsigned());
}

TEST(PreferenceJson, ARealThatIsNotFiniteCannotBeWritten)
{
    EXPECT_THROW(writePreferenceJson(Value::dictionary({ { "x", Value::real(NAN) } })), JsonError);
}
