#include "platform/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using platform::isValidJsonObject;
using platform::JsonError;
using platform::JsonReadOptions;
using platform::JsonWriteOptions;
using platform::readJson;
using platform::Value;
using platform::writeJson;

namespace {

JsonReadOptions fragmentsAllowed()
{
    JsonReadOptions options;
    options.allowFragments = true;
    return options;
}

JsonWriteOptions pretty()
{
    JsonWriteOptions options;
    options.prettyPrinted = true;
    return options;
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

}

// ---------------------------------------------------------------- Reading

TEST(JsonRead, IntegersAreSignedLongLongs)
{
    const Value array = readJson("[0, -2, 9223372036854775807, -9223372036854775808]");
    for (const auto& element : array.elements())
        EXPECT_STREQ(element.number().objCType(), "q") << element.description();
    EXPECT_EQ(array.at(1).number().int64Value(), -2);
    EXPECT_EQ(array.at(3).number().int64Value(), std::numeric_limits<std::int64_t>::min());
}

TEST(JsonRead, IntegersBeyondTheSignedRangeAreUnsigned)
{
    const Value array = readJson("[9223372036854775808, 18446744073709551615]");
    EXPECT_STREQ(array.at(0).number().objCType(), "Q");
    EXPECT_EQ(array.at(1).number().uint64Value(), std::numeric_limits<std::uint64_t>::max());
}

TEST(JsonRead, IntegersBeyondBothRangesAreReals)
{
    const Value array = readJson("[18446744073709551616, -9223372036854775809]");
    EXPECT_STREQ(array.at(0).number().objCType(), "d");
    EXPECT_STREQ(array.at(1).number().objCType(), "d");
    EXPECT_EQ(array.at(0).number().doubleValue(), 18446744073709551616.0);
}

TEST(JsonRead, NumbersWithAFractionOrExponentAreDoubles)
{
    const Value array = readJson("[1.5, 1.0, 2e3, -0.25E-2]");
    for (const auto& element : array.elements())
        EXPECT_STREQ(element.number().objCType(), "d") << element.description();
    EXPECT_EQ(array.at(2).number().doubleValue(), 2000.0);
    EXPECT_EQ(array.at(3).number().doubleValue(), -0.0025);
}

TEST(JsonRead, RealsAreReadToTheNearestDouble)
{
    // Values that a fast but inexact conversion gets one unit in the last place wrong.
    const Value array = readJson("[-9223372036854036854775807, -9.223372036854787e+24, 0.1, 2.2250738585072014e-308]");
    EXPECT_EQ(array.at(0).number().doubleValue(), -9223372036854036854775807.0);
    EXPECT_EQ(array.at(1).number().doubleValue(), -9.223372036854787e+24);
    EXPECT_EQ(array.at(2).number().doubleValue(), 0.1);
    EXPECT_EQ(array.at(3).number().doubleValue(), 2.2250738585072014e-308);
}

TEST(JsonRead, RealsTooLargeForADoubleAreRefused)
{
    EXPECT_THROW(readJson("[1e999]"), JsonError);
    EXPECT_THROW(readJson("[-1e400]"), JsonError);
}

TEST(JsonRead, RealsTooSmallForADoubleReadAsZero)
{
    EXPECT_EQ(readJson("[1e-400]").at(0).number().doubleValue(), 0.0);
}

TEST(JsonRead, TrueAndFalseAreBooleanNumbers)
{
    const Value array = readJson("[true, false]");
    EXPECT_TRUE(array.at(0).number().isBoolean());
    EXPECT_STREQ(array.at(0).number().objCType(), "c");
    EXPECT_TRUE(array.at(0).number().boolValue());
    EXPECT_FALSE(array.at(1).number().boolValue());
}

TEST(JsonRead, NullIsTheNullObjectNotAnAbsentValue)
{
    const Value dictionary = readJson(R"({"key": null})");
    const auto value = dictionary.objectForKey("key");
    ASSERT_TRUE(value.has_value());
    EXPECT_TRUE(value->isNull());
    EXPECT_FALSE(dictionary.objectForKey("other").has_value());
}

TEST(JsonRead, ObjectsKeepTheOrderOfTheirMembers)
{
    const Value dictionary = readJson(R"({"b": 1, "a": 2, "c": {"z": 1, "y": 2}})");
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string> { "b", "a", "c" }));
    EXPECT_EQ(dictionary.find("c")->keys(), (std::vector<std::string> { "z", "y" }));
}

TEST(JsonRead, ARepeatedMemberKeepsItsFirstPlaceAndItsLastValue)
{
    const Value dictionary = readJson(R"({"a": 1, "b": 2, "a": 3})");
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string> { "a", "b" }));
    EXPECT_EQ(dictionary.find("a")->number().int64Value(), 3);
}

TEST(JsonRead, EscapesBecomeUtf8)
{
    const Value array = readJson(R"(["\u00e9", "\ud83d\ude00", "a\/b", "\"\\\n\t", "\u0000"])");
    EXPECT_EQ(array.at(0).string(), "\xC3\xA9");
    EXPECT_EQ(array.at(1).string(), "\xF0\x9F\x98\x80");
    EXPECT_EQ(array.at(2).string(), "a/b");
    EXPECT_EQ(array.at(3).string(), "\"\\\n\t");
    EXPECT_EQ(array.at(4).string(), std::string(1, '\0'));
}

TEST(JsonRead, LoneSurrogateEscapesAreRefused)
{
    EXPECT_THROW(readJson(R"(["\ud800"])"), JsonError);
    EXPECT_THROW(readJson(R"(["\udc00x"])"), JsonError);
}

TEST(JsonRead, InvalidUtf8IsRefused)
{
    EXPECT_THROW(readJson("[\"\xC3\x28\"]"), JsonError);
    EXPECT_THROW(readJson("{\"\xFF\": 1}"), JsonError);
    EXPECT_THROW(readJson("[\"\xED\xA0\x80\"]"), JsonError); // an encoded surrogate
    EXPECT_THROW(readJson("[\"\xC0\xAF\"]"), JsonError); // an overlong "/"
}

TEST(JsonRead, NestingOf256LevelsIsRead)
{
    Value value = readJson(nested(256));
    std::size_t depth = 1;
    while (value.count() > 0) {
        value = Value(value.at(0));
        ++depth;
    }
    EXPECT_EQ(depth, 256u);
}

TEST(JsonRead, NestingBeyond256LevelsIsRefused)
{
    EXPECT_THROW(readJson(nested(257)), JsonError);
    EXPECT_THROW(readJson(nested(100000)), JsonError);
}

TEST(JsonRead, TruncatedTextIsRefused)
{
    for (const char* text : { "", "[", "{", R"({"a")", R"({"a":)", R"({"a":1)", "[1,", R"(["abc)", "[tru", "[1e", "[-" })
        EXPECT_THROW(readJson(text), JsonError) << text;
}

TEST(JsonRead, TextAfterTheValueIsRefused)
{
    EXPECT_THROW(readJson("[1] x"), JsonError);
    EXPECT_THROW(readJson("[1][2]"), JsonError);
    EXPECT_NO_THROW(readJson(" \n[1]\t "));
}

TEST(JsonRead, SyntaxErrorsAreRefused)
{
    for (const char* text : { "[1,]", "{\"a\":1,}", "[01]", "[+1]", "[.5]", "[NaN]", "['a']", "{a:1}", "[1 2]", "/**/[1]" })
        EXPECT_THROW(readJson(text), JsonError) << text;
}

TEST(JsonRead, TopLevelFragmentsAreRefusedByDefault)
{
    for (const char* text : { "\"text\"", "12", "true", "null" }) {
        EXPECT_THROW(readJson(text), JsonError) << text;
        EXPECT_NO_THROW(readJson(text, fragmentsAllowed())) << text;
    }
    EXPECT_EQ(readJson("\"text\"", fragmentsAllowed()).string(), "text");
    EXPECT_TRUE(readJson("null", fragmentsAllowed()).isNull());
}

TEST(JsonRead, ErrorsCarryTheJsonErrorCode)
{
    try {
        readJson("{");
        FAIL() << "no error";
    } catch (const JsonError& error) {
        EXPECT_EQ(error.error().domain, "NSCocoaErrorDomain");
        EXPECT_EQ(error.error().code, 3840);
        EXPECT_FALSE(error.reason().empty());
    }
}

// ---------------------------------------------------------------- Writing

TEST(JsonWrite, CompactOutputHasNoSpaces)
{
    const Value value = Value::dictionary({ { "a", Value::integer(1) }, { "b", Value::array({ "x", Value::null() }) } });
    EXPECT_EQ(writeJson(value), R"({"a":1,"b":["x",null]})");
}

TEST(JsonWrite, PrettyOutputIndentsByTwoSpacesWithSpacedColons)
{
    const Value value = Value::dictionary({ { "a", Value::integer(1) },
        { "b", Value::array({ Value::boolean(true), Value::dictionary({ { "c", "d" } }) }) } });
    EXPECT_EQ(writeJson(value, pretty()),
        "{\n"
        "  \"a\" : 1,\n"
        "  \"b\" : [\n"
        "    true,\n"
        "    {\n"
        "      \"c\" : \"d\"\n"
        "    }\n"
        "  ]\n"
        "}");
}

TEST(JsonWrite, EmptyContainersPrettyPrintWithAnEmptyLine)
{
    EXPECT_EQ(writeJson(Value::dictionary(), pretty()), "{\n\n}");
    EXPECT_EQ(writeJson(Value::array(), pretty()), "[\n\n]");
    EXPECT_EQ(writeJson(Value::dictionary()), "{}");
}

TEST(JsonWrite, SlashesAreEscaped)
{
    EXPECT_EQ(writeJson(Value::array({ "/Users/a/b.txt" })), R"(["\/Users\/a\/b.txt"])");
}

TEST(JsonWrite, ControlCharactersAndQuotesAreEscaped)
{
    const std::string text = std::string("\"\\\n\r\t\b\f") + '\x01' + '\x1f' + '\0';
    EXPECT_EQ(writeJson(Value::array({ Value(text) })), R"(["\"\\\n\r\t\b\f\u0001\u001f\u0000"])");
}

TEST(JsonWrite, NonAsciiTextIsWrittenAsUtf8)
{
    EXPECT_EQ(writeJson(Value::array({ "\xC3\xA9" })), "[\"\xC3\xA9\"]");
}

TEST(JsonWrite, InvalidUtf8IsRefused)
{
    EXPECT_THROW(writeJson(Value::array({ "\xFF" })), JsonError);
    EXPECT_THROW(writeJson(Value::dictionary({ { "\xC3", "x" } })), JsonError);
    EXPECT_FALSE(isValidJsonObject(Value::array({ "\xED\xA0\x80" })));
}

TEST(JsonWrite, NumbersKeepTheirKind)
{
    const Value value = Value::array({ Value::integer(-5), Value::unsignedInteger(18446744073709551615u),
        Value::real(0.5), Value::real(3.0), Value::boolean(false) });
    EXPECT_EQ(writeJson(value), "[-5,18446744073709551615,0.5,3,false]");
}

TEST(JsonWrite, NotANumberAndInfinityAreRefused)
{
    EXPECT_THROW(writeJson(Value::array({ Value::real(std::nan("")) })), JsonError);
    EXPECT_THROW(writeJson(Value::array({ Value::real(INFINITY) })), JsonError);
}

TEST(JsonWrite, DatesAndDataAreRefused)
{
    EXPECT_THROW(writeJson(Value::array({ Value::date(0) })), JsonError);
    EXPECT_THROW(writeJson(Value::array({ Value::data({ 1, 2 }) })), JsonError);
    EXPECT_FALSE(isValidJsonObject(Value::dictionary({ { "d", Value::date(0) } })));
}

TEST(JsonWrite, TopLevelFragmentsAreRefusedByDefault)
{
    EXPECT_THROW(writeJson(Value("text")), JsonError);
    EXPECT_FALSE(isValidJsonObject(Value::integer(1)));
    JsonWriteOptions options;
    options.allowFragments = true;
    EXPECT_EQ(writeJson(Value("a/b"), options), R"("a\/b")");
    EXPECT_EQ(writeJson(Value::null(), options), "null");
}

TEST(JsonWrite, WrittenValuesReadBackEqual)
{
    const Value value = readJson(R"({"z":[1,-1,18446744073709551615,0.1,1e300,5e-324,true,null,"\u00e9\/"],"a":{}})");
    for (const bool isPretty : { false, true }) {
        JsonWriteOptions options;
        options.prettyPrinted = isPretty;
        const Value again = readJson(writeJson(value, options));
        EXPECT_EQ(again, value);
        EXPECT_EQ(again.keys(), value.keys());
    }
}

TEST(JsonWrite, SlashesStayBareWhenEscapingIsTurnedOff)
{
    platform::JsonWriteOptions options;
    options.escapeSlashes = false;
    EXPECT_EQ(platform::writeJson(platform::Value::array({ "/a/b" }), options), "[\"/a/b\"]");
    EXPECT_EQ(platform::writeJson(platform::Value::array({ "/a/b" })), "[\"\\/a\\/b\"]");
}

// A list written one element at a time is the text writeJson gives for the whole list, in both layouts, empty or not.
TEST(JsonArrayWriter, WritesTheTextOfTheWholeArray)
{
    const Value nested = Value::dictionary({ { "a/b", Value("x\n\"y\"") }, { "n", Value::array({ Value::integer(1), Value() }) },
        { "empty", Value::dictionary() } });
    const std::vector<Value> lists[] = { {}, { nested }, { nested, Value("t"), Value::array() } };
    for (const auto& list : lists) {
        for (const JsonWriteOptions& options : { JsonWriteOptions {}, pretty() }) {
            platform::JsonArrayWriter writer(options);
            for (const Value& element : list)
                writer.append(element);
            EXPECT_EQ(writer.finish(), writeJson(Value::arrayOf(list), options));
        }
    }
}

// A text of several mebibytes is written in pieces and joined once: the same text, holding no room beyond its size
// (grown by doubling it would hold up to as much again).
TEST(JsonArrayWriter, ALongTextIsTheWholeArraysTextWithNoRoomToSpare)
{
    platform::Array list;
    for (int index = 0; index < 30000; ++index)
        list.push_back(Value::dictionary({ { "BaseSystemFilePathKey", Value("/home/ann/Korbanhold/folder/file-"
                                                                            + std::to_string(index) + ".txt") },
            { "fileSizeKey", Value(std::to_string(index)) } }));
    platform::JsonArrayWriter writer(pretty());
    for (const Value& element : list)
        writer.append(element);
    const std::string text = writer.finish();
    EXPECT_EQ(text, writeJson(Value::arrayOf(list), pretty()));
    EXPECT_GT(text.size(), std::size_t(3) << 20);
    EXPECT_LE(text.capacity(), text.size() + text.size() / 64);
}

TEST(JsonArrayWriter, RaisesAsWriteJsonForAnElementJsonCannotHold)
{
    platform::JsonArrayWriter writer(pretty());
    writer.append(Value("fine"));
    EXPECT_THROW(writer.append(Value::real(std::nan(""))), JsonError);
}
