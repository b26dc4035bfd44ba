#include "platform/Value.h"

#include <gtest/gtest.h>

using platform::Exception;
using platform::Number;
using platform::Value;

TEST(Value, DefaultIsTheNullObjectWhichIsNeitherAbsentNorEmpty)
{
    Value value;
    EXPECT_TRUE(value.isNull());
    EXPECT_FALSE(value == Value(""));
    std::optional<Value> absent;
    EXPECT_FALSE(absent.has_value());
    EXPECT_EQ(value.description(), "<null>");
}

TEST(Value, InsertingAnAbsentValueIntoADictionaryRaises)
{
    Value dictionary = Value::dictionary();
    EXPECT_THROW(dictionary.setObject(std::optional<Value>(), "key"), Exception);
    EXPECT_EQ(dictionary.count(), 0u);
}

TEST(Value, AppendingAnAbsentValueToAnArrayRaises)
{
    Value array = Value::array();
    EXPECT_THROW(array.append(std::optional<Value>()), Exception);
    EXPECT_THROW(array.insert(std::optional<Value>(), 0), Exception);
}

TEST(Value, TheNullObjectCanBeInsertedBecauseItIsAValue)
{
    Value dictionary = Value::dictionary();
    dictionary.setObject(Value::null(), "key");
    ASSERT_NE(dictionary.find("key"), nullptr);
    EXPECT_TRUE(dictionary.find("key")->isNull());
}

TEST(Value, StringOperationOnTheNullObjectRaises)
{
    EXPECT_THROW(Value::null().string(), Exception);
    EXPECT_THROW(Value::integer(3).string(), Exception);
}

TEST(Value, IndexOutOfRangeRaisesRangeException)
{
    Value array = Value::array({ "a" });
    try {
        (void)array.at(1);
        FAIL() << "no exception";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "NSRangeException");
    }
    EXPECT_THROW(array.insert(Value("b"), 2), Exception);
    EXPECT_THROW(array.removeAt(1), Exception);
}

TEST(Value, AStringNeverEqualsANumber)
{
    EXPECT_FALSE(Value("1") == Value::integer(1));
    EXPECT_TRUE(Value::integer(1) == Value::real(1.0));
    EXPECT_TRUE(Value::boolean(true) == Value::integer(1));
}

TEST(Value, DictionariesCompareDeeplyRegardlessOfOrder)
{
    Value a = Value::dictionary({ { "x", "1" }, { "y", Value::array({ "2" }) } });
    Value b = Value::dictionary({ { "y", Value::array({ "2" }) }, { "x", "1" } });
    EXPECT_TRUE(a == b);
    b.setObject(Value("3"), "x");
    EXPECT_FALSE(a == b);
}

TEST(Value, DictionaryKeepsInsertionOrderAndReplacesInPlace)
{
    Value dictionary = Value::dictionary({ { "b", "1" }, { "a", "2" } });
    dictionary.setObject(Value("3"), "b");
    dictionary.setObject(Value("4"), "c");
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string> { "b", "a", "c" }));
    EXPECT_EQ(dictionary.find("b")->string(), "3");
}

TEST(Value, CopiesDoNotAlias)
{
    Value table = Value::array({ Value::dictionary({ { "k", "v" } }) });
    Value copy = table;
    copy.mutableAt(0).setObject(Value("changed"), "k");
    copy.append(Value("more"));
    EXPECT_EQ(table.count(), 1u);
    EXPECT_EQ(table.at(0).find("k")->string(), "v");
    EXPECT_EQ(copy.at(0).find("k")->string(), "changed");
}

TEST(Value, NumbersKeepTheirTypeCodes)
{
    EXPECT_STREQ(Number::boolean(true).objCType(), "c");
    EXPECT_STREQ(Number::fromChar(1).objCType(), "c");
    EXPECT_STREQ(Number::fromShort(1).objCType(), "s");
    EXPECT_STREQ(Number::fromInt(1).objCType(), "i");
    EXPECT_STREQ(Number::fromLongLong(1).objCType(), "q");
    EXPECT_STREQ(Number::fromUnsignedLongLong(1).objCType(), "Q");
    EXPECT_STREQ(Number::fromFloat(1).objCType(), "f");
    EXPECT_STREQ(Number::fromDouble(1).objCType(), "d");
    EXPECT_EQ(Number::fromUnsignedLongLong(UINT64_MAX).uint64Value(), UINT64_MAX);
}

TEST(Value, DescriptionPrintsTheOldStyleFormat)
{
    EXPECT_EQ(Value("plain text").description(), "plain text");
    Value array = Value::array({ "abc", "a b", Value::integer(5), Value::null() });
    EXPECT_EQ(array.description(), "(\n    abc,\n    \"a b\",\n    5,\n    <null>\n)");
}
