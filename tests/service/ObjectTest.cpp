#include "service/Object.h"

#include <fcntl.h>

#include <gtest/gtest.h>

using platform::Value;
using service::Object;

TEST(ServiceObject, APlatformValueComesBackWholeWhenItHoldsNoHandleOrUuid)
{
    const Value record = Value::dictionary({ { "b", Value::array({ Value::integer(1), Value::null() }) }, { "a", Value("x") } });
    const Object object(record);
    ASSERT_NE(object.dictionaryIf(), nullptr);
    EXPECT_EQ(object.dictionaryIf()->front().first, "b") << "insertion order is kept";
    EXPECT_EQ(object.value(), record);
}

TEST(ServiceObject, AnObjectHoldingAUuidHasNoPlatformValue)
{
    const Object object = Object::array({ Object(Value("x")), Object(service::XPCUUID::uuid()) });
    EXPECT_FALSE(object.value());
}

TEST(ServiceObject, DescriptionPrintsUuidsAndHandlesByTheirDescriptions)
{
    const service::XPCUUID uuid({ 0x68, 0x75, 0x3a, 0x44, 0x4d, 0x6f, 0x12, 0x26, 0x9c, 0x60, 0x00, 0x50, 0xe4, 0xc0, 0x00, 0x67 });
    EXPECT_EQ(Object(uuid).description(), "<XPCUUID 68753A44-4D6F-1226-9C60-0050E4C00067>");
    EXPECT_EQ(Object(Value("plain")).description(), "plain");
    const service::FileHandle handle(platform::OwnedFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    EXPECT_EQ(Object(handle).description(), "<NSFileHandle: fd " + std::to_string(handle.fileDescriptor()) + ">");
    EXPECT_EQ(Object::dictionary({ { "k", Object(Value::integer(1)) } }).description(), "{\n    k = 1;\n}");
}

TEST(ServiceObject, DictionariesAreEqualWhateverTheOrderOfTheirKeys)
{
    const Object first = Object::dictionary({ { "a", Object(Value::integer(1)) }, { "b", Object(Value("2")) } });
    const Object second = Object::dictionary({ { "b", Object(Value("2")) }, { "a", Object(Value::integer(1)) } });
    EXPECT_EQ(first, second);
    EXPECT_FALSE(first == Object::dictionary({ { "a", Object(Value::integer(1)) } }));
}

TEST(ServiceObject, SettingAKeyAgainReplacesItsObjectInPlace)
{
    Object dictionary = Object::dictionary({ { "a", Object(Value::integer(1)) }, { "b", Object(Value::integer(2)) } });
    dictionary.set("a", Object(Value::integer(3)));
    ASSERT_EQ(dictionary.dictionaryIf()->size(), 2u);
    EXPECT_EQ(dictionary.dictionaryIf()->front().first, "a");
    EXPECT_EQ(*dictionary.find("a"), Object(Value::integer(3)));
}

TEST(ServiceObject, InsertingBeyondTheEndOfAListRaisesARangeException)
{
    Object list = Object::array();
    list.insert(Object(Value("first")), 0);
    try {
        list.insert(Object(Value("third")), 2);
        FAIL() << "no exception";
    } catch (const platform::Exception& exception) {
        EXPECT_EQ(exception.name(), "NSRangeException");
    }
    EXPECT_THROW(Object::array().insert(Object(Value("x")), 1), platform::Exception);
    EXPECT_THROW(Object(Value("leaf")).insert(Object(Value("x")), 0), platform::Exception);
}

TEST(ServiceObject, CopiesDoNotSeeLaterChanges)
{
    Object original = Object::dictionary({ { "a", Object(Value::integer(1)) } });
    Object copy = original;
    copy.set("b", Object(Value::integer(2)));
    EXPECT_EQ(original.dictionaryIf()->size(), 1u);
}
