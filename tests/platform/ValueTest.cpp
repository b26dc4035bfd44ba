#include "platform/Value.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

using platform::Array;
using platform::Exception;
using platform::Number;
using platform::Value;

TEST(Value, DefaultIsTheNullObjectWhichIsNeitherAbsentNorEmpty)
{
    Value value;
    EXPECT_TRUE(value.isNull());
    EXPECT_FALSE(value == Value(""));
    // Stored under a key, the null object is there; a key never set is absent.
    Value dictionary = Value::dictionary();
    dictionary.setObject(value, "null");
    ASSERT_NE(dictionary.find("null"), nullptr);
    EXPECT_TRUE(dictionary.find("null")->isNull());
    EXPECT_EQ(dictionary.find("absent"), nullptr);
    EXPECT_FALSE(dictionary.objectForKey("absent").has_value());
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

// ---------------------------------------------------------------- Kinds

TEST(Value, EachKindKnowsWhatItIsAndItsFrameworkClass)
{
    const std::vector<std::pair<Value, const char*>> kinds {
        { Value::null(), "NSNull" },
        { Value("text"), "NSString" },
        { Value::integer(1), "NSNumber" },
        { Value::date(0), "NSDate" },
        { Value::data({ 1 }), "NSData" },
        { Value::array(), "NSArray" },
        { Value::dictionary(), "NSDictionary" },
    };
    for (const auto& [value, className] : kinds)
        EXPECT_STREQ(value.className(), className);
    EXPECT_TRUE(kinds[0].first.isNull());
    EXPECT_TRUE(kinds[1].first.isString());
    EXPECT_TRUE(kinds[2].first.isNumber());
    EXPECT_TRUE(kinds[3].first.isDate());
    EXPECT_TRUE(kinds[4].first.isData());
    EXPECT_TRUE(kinds[5].first.isArray());
    EXPECT_TRUE(kinds[6].first.isDictionary());
}

TEST(Value, AbsentNullObjectAndEmptyStringAreThreeDifferentThings)
{
    const Value dictionary = Value::dictionary({ { "null", Value::null() }, { "empty", "" } });
    EXPECT_FALSE(dictionary.objectForKey("missing").has_value());
    EXPECT_EQ(dictionary.find("missing"), nullptr);
    EXPECT_TRUE(dictionary.find("null")->isNull());
    EXPECT_EQ(dictionary.find("null")->stringIf(), nullptr);
    EXPECT_EQ(dictionary.find("empty")->string(), "");
    EXPECT_FALSE(*dictionary.find("null") == *dictionary.find("empty"));
    EXPECT_EQ(platform::stringForKey(dictionary, "empty")->size(), 0u);
    EXPECT_EQ(platform::stringForKey(dictionary, "null"), nullptr);
    EXPECT_EQ(platform::stringForKey(dictionary, "missing"), nullptr);
}

TEST(Value, ANullCStringRaisesInsteadOfMakingAString)
{
    const char* nothing = nullptr;
    EXPECT_THROW(Value { nothing }, Exception);
}

// ---------------------------------------------------------------- Raising operations

TEST(Value, ReplacingAnElementWithAnAbsentValueRaises)
{
    Value array = Value::array({ "a" });
    EXPECT_THROW(array.replaceAt(0, std::nullopt), Exception);
    EXPECT_EQ(array.at(0).string(), "a");
}

TEST(Value, NilInsertionRaisesAnInvalidArgumentNamingTheKey)
{
    Value dictionary = Value::dictionary();
    try {
        dictionary.setObject(std::optional<Value>(), "computerIDKey");
        FAIL() << "no exception";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
        EXPECT_NE(exception.reason().find("computerIDKey"), std::string::npos);
    }
}

TEST(Value, AccessOfTheWrongKindRaises)
{
    EXPECT_THROW(Value("1").number(), Exception);
    EXPECT_THROW(Value::null().count(), Exception);
    EXPECT_THROW(Value("x").elements(), Exception);
    EXPECT_THROW(Value::array().entries(), Exception);
    EXPECT_THROW(Value::integer(1).dateValue(), Exception);
    EXPECT_THROW(Value::date(1).bytes(), Exception);
    Value text("x");
    EXPECT_THROW(text.append(Value("y")), Exception);
    EXPECT_THROW(text.setObject(Value("y"), "k"), Exception);
    EXPECT_EQ(Value::null().stringIf(), nullptr);
    EXPECT_EQ(Value("x").numberIf(), nullptr);
}

TEST(Value, EveryIndexedOperationChecksItsIndex)
{
    Value empty = Value::array();
    EXPECT_THROW((void)empty.at(0), Exception);
    EXPECT_THROW(empty.mutableAt(0), Exception);
    EXPECT_THROW(empty.removeAt(0), Exception);
    EXPECT_THROW(empty.replaceAt(0, Value("a")), Exception);
    EXPECT_NO_THROW(empty.insert(Value("a"), 0));
    EXPECT_NO_THROW(empty.insert(Value("b"), 1));
    EXPECT_EQ(empty.count(), 2u);
}

TEST(Value, RangeErrorsOnAnEmptyArraySaySo)
{
    try {
        (void)Value::array().at(3);
        FAIL() << "no exception";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "NSRangeException");
        EXPECT_NE(exception.reason().find("index 3 beyond bounds for empty array"), std::string::npos)
            << exception.reason();
    }
}

// ---------------------------------------------------------------- Equality

TEST(Value, NumbersCompareByValueWhateverTheirTypeCode)
{
    EXPECT_EQ(Value(Number::fromChar(7)), Value(Number::fromDouble(7.0)));
    EXPECT_EQ(Value(Number::fromShort(-3)), Value::integer(-3));
    EXPECT_EQ(Value::unsignedInteger(5), Value::integer(5));
    EXPECT_FALSE(Value::unsignedInteger(UINT64_MAX) == Value::integer(-1));
    EXPECT_FALSE(Value::integer(1) == Value::integer(2));
    EXPECT_EQ(Value::boolean(false), Value::integer(0));
}

TEST(Value, ValuesOfDifferentKindsAreNeverEqual)
{
    EXPECT_FALSE(Value::null() == Value::array());
    EXPECT_FALSE(Value::array() == Value::dictionary());
    EXPECT_FALSE(Value::date(0) == Value::integer(0));
    EXPECT_FALSE(Value::data({}) == Value(""));
}

TEST(Value, ArraysCompareElementByElementInOrder)
{
    EXPECT_EQ(Value::array({ "a", Value::integer(1) }), Value::array({ "a", Value::integer(1) }));
    EXPECT_FALSE(Value::array({ "a", "b" }) == Value::array({ "b", "a" }));
    EXPECT_FALSE(Value::array({ "a" }) == Value::array({ "a", "a" }));
}

TEST(Value, DatesDataAndNullCompareByContent)
{
    EXPECT_EQ(Value::date(1.5), Value::date(1.5));
    EXPECT_FALSE(Value::date(1.5) == Value::date(2));
    EXPECT_EQ(Value::data({ 1, 2 }), Value::data({ 1, 2 }));
    EXPECT_FALSE(Value::data({ 1, 2 }) == Value::data({ 2, 1 }));
    EXPECT_EQ(Value::null(), Value());
}

TEST(Value, DictionariesWithDifferentKeysAreNotEqual)
{
    EXPECT_FALSE(Value::dictionary({ { "a", "1" } }) == Value::dictionary({ { "b", "1" } }));
    EXPECT_FALSE(Value::dictionary({ { "a", "1" } }) == Value::dictionary({ { "a", "1" }, { "b", "1" } }));
}

// ---------------------------------------------------------------- Dictionaries

TEST(Value, RemovingAKeyKeepsTheOrderOfTheOthers)
{
    Value dictionary = Value::dictionary({ { "a", "1" }, { "b", "2" }, { "c", "3" } });
    dictionary.removeObjectForKey("b");
    dictionary.removeObjectForKey("missing");
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string> { "a", "c" }));
}

TEST(Value, ARepeatedKeyWhenBuildingKeepsItsFirstPlaceAndLastValue)
{
    const Value dictionary = Value::dictionaryOf({ { "a", "1" }, { "b", "2" }, { "a", "3" } });
    EXPECT_EQ(dictionary.keys(), (std::vector<std::string> { "a", "b" }));
    EXPECT_EQ(dictionary.find("a")->string(), "3");
}

// ---------------------------------------------------------------- Copies

TEST(Value, CopyingALargeTableSharesItsRecordsUntilOneChanges)
{
    Array records;
    records.reserve(100000);
    for (int i = 0; i < 100000; ++i)
        records.push_back(Value::dictionary({ { "BaseSystemFileIDKey", Value(std::to_string(i)) } }));
    const Value table = Value::arrayOf(std::move(records));

    Value copy = table;
    EXPECT_EQ(&copy.elements(), &table.elements());
    copy.mutableAt(0).setObject(Value("changed"), "BaseSystemFileIDKey");
    // The outer list was copied once; every record but the changed one still shares its storage.
    EXPECT_NE(&copy.elements(), &table.elements());
    EXPECT_EQ(&copy.at(1).entries(), &table.at(1).entries());
    EXPECT_EQ(&copy.at(99999).entries(), &table.at(99999).entries());
    EXPECT_EQ(table.at(0).find("BaseSystemFileIDKey")->string(), "0");
}

TEST(Value, AMovedFromContainerIsAnEmptyContainerOfItsKind)
{
    Value array = Value::array({ "a" });
    Value taken = std::move(array);
    EXPECT_EQ(taken.count(), 1u);
    EXPECT_TRUE(array.isArray()); // NOLINT(bugprone-use-after-move): the moved-from state is what is tested
    EXPECT_EQ(array.count(), 0u);
    array.append(Value("b"));
    EXPECT_EQ(array.count(), 1u);
    EXPECT_EQ(taken.at(0).string(), "a");
}

TEST(Value, ACopyReadAndDroppedOnAnotherThreadDoesNotRaceWithTheOwnersChanges)
{
    Value table = Value::array({ Value::dictionary({ { "k", "v" } }) });
    std::atomic<bool> dropped { false };
    std::thread reader([copy = table, &dropped]() mutable {
        EXPECT_EQ(copy.at(0).find("k")->string(), "v");
        copy = Value();
        dropped.store(true, std::memory_order_relaxed);
    });
    while (!dropped.load(std::memory_order_relaxed))
        std::this_thread::yield();
    // The only ordering with the reader is the release of its copy; ThreadSanitizer checks that it is enough.
    table.mutableAt(0).setObject(Value("changed"), "k");
    reader.join();
    EXPECT_EQ(table.at(0).find("k")->string(), "changed");
}

// ---------------------------------------------------------------- Numbers

TEST(Value, NumberConversionsWrapOrSaturateWithoutUndefinedBehaviour)
{
    EXPECT_EQ(Number::fromUnsignedLongLong(UINT64_MAX).int64Value(), -1);
    EXPECT_EQ(Number::fromLongLong(-1).uint64Value(), UINT64_MAX);
    EXPECT_EQ(Number::fromDouble(1e300).int64Value(), INT64_MAX);
    EXPECT_EQ(Number::fromDouble(-1e300).int64Value(), INT64_MIN);
    EXPECT_EQ(Number::fromDouble(1e300).uint64Value(), UINT64_MAX);
    EXPECT_EQ(Number::fromDouble(std::nan("")).int64Value(), 0);
    EXPECT_EQ(Number::fromDouble(-2.7).int64Value(), -2);
    EXPECT_EQ(Number::fromDouble(2.7).uint64Value(), 2u);
    EXPECT_TRUE(Number::fromUnsignedLongLong(1ull << 63).boolValue());
    EXPECT_FALSE(Number::fromDouble(0.0).boolValue());
    EXPECT_EQ(Number::fromUnsignedLongLong(UINT64_MAX).doubleValue(), 18446744073709551616.0);
}

TEST(Value, NumbersPrintInTheirShortestExactForm)
{
    EXPECT_EQ(Number::boolean(true).stringValue(), "1");
    EXPECT_EQ(Number::fromDouble(0.1).stringValue(), "0.1");
    EXPECT_EQ(Number::fromFloat(0.1f).stringValue(), "0.1");
    EXPECT_EQ(Number::fromDouble(3.0).stringValue(), "3");
    EXPECT_EQ(Number::fromUnsignedLongLong(UINT64_MAX).stringValue(), "18446744073709551615");
    EXPECT_EQ(Number::fromLongLong(INT64_MIN).stringValue(), "-9223372036854775808");
}

// ---------------------------------------------------------------- Description

TEST(Value, DictionaryDescriptionListsKeysSortedWithSemicolons)
{
    const Value dictionary = Value::dictionary({ { "b", "two words" }, { "a", Value::integer(1) }, { "c d", "" } });
    EXPECT_EQ(dictionary.description(), "{\n    a = 1;\n    b = \"two words\";\n    \"c d\" = \"\";\n}");
}

TEST(Value, NestedCollectionsOpenAfterTheIndentationOfTheirOwnLevel)
{
    const Value value = Value::dictionary({ { "list", Value::array({ Value::dictionary({ { "k", "v" } }) }) } });
    EXPECT_EQ(value.description(),
        "{\n"
        "    list =     (\n"
        "                {\n"
        "            k = v;\n"
        "        }\n"
        "    );\n"
        "}");
    EXPECT_EQ(Value::array({ Value::array({ "a" }) }).description(), "(\n        (\n        a\n    )\n)");
}

TEST(Value, EmptyCollectionsDescribeAsTheirBrackets)
{
    EXPECT_EQ(Value::array().description(), "(\n)");
    EXPECT_EQ(Value::dictionary().description(), "{\n}");
}

TEST(Value, StringsAreBareAtTopLevelAndQuotedInsideWhenTheyNeedIt)
{
    EXPECT_EQ(Value("a b").description(), "a b");
    EXPECT_EQ(Value::array({ "Abc123", "1.0", "user_id", "/Users/a", "a-b", "x\"y", "\xC3\xA9" }).description(),
        "(\n    Abc123,\n    \"1.0\",\n    \"user_id\",\n    \"/Users/a\",\n    \"a-b\",\n    \"x\\\"y\",\n    \"\\U00e9\"\n)");
}

TEST(Value, DataDescribesAsHexInGroupsOfFourBytes)
{
    EXPECT_EQ(Value::data({ 0, 1, 2, 0xab, 0xff }).description(), "<000102ab ff>");
    EXPECT_EQ(Value::data({}).description(), "<>");
}

TEST(Value, DatesDescribeInUtc)
{
    EXPECT_EQ(Value::date(978307200).description(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value::date(-0.5).description(), "1969-12-31 23:59:59 +0000");
}

TEST(Value, DatesBeyondTheCalendarDescribeAsTheirSecondsInsteadOfOverflowing)
{
    EXPECT_EQ(Value::date(1e300).description(), "1e+300 seconds since 1970");
    EXPECT_EQ(Value::date(std::nan("")).description(), "nan seconds since 1970");
}
