#include "service/XPCParse.h"

#include "platform/IpcWire.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <limits>

using platform::Number;
using platform::Value;
using platform::ipc::Type;
using service::FileHandle;
using service::Object;
using service::XPCUUID;
using XPCObject = platform::ipc::Object;
namespace XPCParse = service::XPCParse;

namespace {

// Carries one object to "the other side": converted, framed, unframed and converted back, as two processes do.
Object travel(const Object& object)
{
    const auto message = XPCParse::newXPCObject(Object::dictionary({ { "value", object } }));
    platform::ipc::Frame frame = platform::ipc::encodeFrame(*message);
    std::vector<platform::OwnedFd> descriptors;
    for (int fd : frame.descriptors)
        descriptors.push_back(platform::OwnedFd::duplicate(fd));
    const auto received = XPCParse::objectWithXPCObject(platform::ipc::decodeFrame(frame.bytes, std::move(descriptors)));
    return *received->find("value");
}

XPCObject convert(const Object& object)
{
    auto converted = XPCParse::newXPCObject(object);
    EXPECT_TRUE(converted);
    return converted.value_or(XPCObject());
}

const Number& numberOf(const Object& object) { return object.valueIf()->number(); }

}

TEST(XPCParse, ANumberMadeFromA32BitIntegerArrivesAsADouble)
{
    const Object received = travel(Value(Number::fromInt(7)));
    EXPECT_STREQ(numberOf(received).objCType(), "d");
    EXPECT_EQ(numberOf(received).doubleValue(), 7.0);
}

TEST(XPCParse, AFalseBooleanArrivesAsTheDoubleZero)
{
    const XPCObject sent = convert(Value::boolean(false));
    EXPECT_EQ(sent.type(), Type::Double);
    EXPECT_EQ(sent.doubleValue(), 0.0);
    const Object received = travel(Value::boolean(false));
    EXPECT_STREQ(numberOf(received).objCType(), "d");
    EXPECT_FALSE(numberOf(received).isBoolean());
}

TEST(XPCParse, ATrueBooleanArrivesAsTheIpcBoolTrue)
{
    const XPCObject sent = convert(Value::boolean(true));
    EXPECT_EQ(sent.type(), Type::Bool);
    EXPECT_TRUE(sent.boolValue());
    EXPECT_TRUE(numberOf(travel(Value::boolean(true))).isBoolean());
}

TEST(XPCParse, UnsignedAndSignedLongLongNumbersKeepTheirIntegerTypes)
{
    const XPCObject unsignedValue = convert(Value::unsignedInteger(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(unsignedValue.type(), Type::UInt64);
    EXPECT_EQ(unsignedValue.uint64Value(), std::numeric_limits<std::uint64_t>::max());
    const XPCObject signedValue = convert(Value::integer(-9007199254740993));
    EXPECT_EQ(signedValue.type(), Type::Int64);
    EXPECT_EQ(signedValue.int64Value(), -9007199254740993);
    EXPECT_STREQ(numberOf(travel(Value::unsignedInteger(5))).objCType(), "Q");
    EXPECT_STREQ(numberOf(travel(Value::integer(5))).objCType(), "q");
}

TEST(XPCParse, EveryOtherNumberTypeTravelsAsADouble)
{
    for (const Number& number : { Number::fromChar(1), Number::fromShort(-3), Number::fromFloat(1.5f), Number::fromDouble(2.25) }) {
        const XPCObject sent = convert(Value(number));
        EXPECT_EQ(sent.type(), Type::Double) << number.objCType();
        EXPECT_EQ(sent.doubleValue(), number.doubleValue()) << number.objCType();
    }
}

TEST(XPCParse, IpcNumbersBecomeNumbersOfTheMatchingType)
{
    EXPECT_EQ(XPCParse::numberWithXPCObject(XPCObject::boolean(false))->number().isBoolean(), true);
    EXPECT_STREQ(XPCParse::numberWithXPCObject(XPCObject::uint64(1))->number().objCType(), "Q");
    EXPECT_STREQ(XPCParse::numberWithXPCObject(XPCObject::int64(1))->number().objCType(), "q");
    EXPECT_STREQ(XPCParse::numberWithXPCObject(XPCObject::real(1))->number().objCType(), "d");
    EXPECT_FALSE(XPCParse::numberWithXPCObject(XPCObject::string("1")));
}

TEST(XPCParse, ADictionaryHoldingAValueThatCannotConvertItselfIsSentWithoutThatEntry)
{
    // The null object has no IPC form, as a URL object has none on the platform.
    const Object dictionary = Object::dictionary({ { "kept", Value("yes") }, { "url", Value::null() } });
    const XPCObject sent = convert(dictionary);
    EXPECT_EQ(sent.count(), 1u);
    EXPECT_EQ(sent.find("url"), nullptr);
    EXPECT_EQ(*sent.stringForKey("kept"), "yes");
}

TEST(XPCParse, AListLeavesOutElementsThatCannotConvertThemselvesSoItArrivesShorter)
{
    const XPCObject sent = convert(Value::array({ Value("a"), Value::null(), Value("b") }));
    ASSERT_EQ(sent.count(), 2u);
    EXPECT_EQ(*(*sent.arrayIf())[1].stringIf(), "b");
}

TEST(XPCParse, AnIpcDateOf1500000000000000000NanosecondsIsTheDate1500000000SecondsAfter1970)
{
    const Value date = XPCParse::dateWithXPCObject(XPCObject::date(1'500'000'000'000'000'000));
    EXPECT_EQ(date.dateValue(), 1'500'000'000.0);
}

TEST(XPCParse, ADateOfHalfASecondGoesBackAs500000000Nanoseconds)
{
    const XPCObject sent = convert(Value::date(0.5));
    EXPECT_EQ(sent.type(), Type::Date);
    EXPECT_EQ(sent.dateValue(), 500'000'000);
}

TEST(XPCParse, DateNanosecondsAreTruncatedTowardZero)
{
    EXPECT_EQ(convert(Value::date(1.0000000019)).dateValue(), 1'000'000'001);
    EXPECT_EQ(convert(Value::date(-1.0000000019)).dateValue(), -1'000'000'001);
}

TEST(XPCParse, ADateBeyondWhatNanosecondsCanHoldGivesTheSmallestCount)
{
    EXPECT_EQ(convert(Value::date(1e300)).dateValue(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(convert(Value::date(std::numeric_limits<double>::quiet_NaN())).dateValue(), std::numeric_limits<std::int64_t>::min());
}

TEST(XPCParse, AnIpcSharedMemoryValueBecomesNullSoADictionaryEntryHoldingOneDisappears)
{
    const auto memory = XPCObject::sharedMemory(platform::ipc::Bytes { 1, 2, 3 });
    ASSERT_TRUE(memory);
    EXPECT_FALSE(XPCParse::objectWithXPCObject(*memory));
    const auto dictionary = XPCParse::objectWithXPCObject(XPCObject::dictionary({ { "memory", *memory }, { "kept", XPCObject::int64(1) } }));
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(dictionary->find("memory"), nullptr);
    EXPECT_NE(dictionary->find("kept"), nullptr);
}

TEST(XPCParse, DataComesOnlyFromDataValues)
{
    EXPECT_EQ(XPCParse::dataWithXPCObject(XPCObject::data({ 9, 8 }))->bytes(), (platform::Bytes { 9, 8 }));
    EXPECT_FALSE(XPCParse::dataWithXPCObject(XPCObject::string("98")));
    EXPECT_EQ(convert(Value::data({ 1, 2 })), XPCObject::data({ 1, 2 }));
}

TEST(XPCParse, TypesWithoutAFrameworkFormBecomeNull)
{
    EXPECT_FALSE(XPCParse::objectWithXPCObject(XPCObject()));
    EXPECT_FALSE(XPCParse::objectWithXPCObject(XPCObject::endpoint("service")));
    EXPECT_FALSE(XPCParse::objectWithXPCObject(XPCObject::connection(nullptr)));
    EXPECT_FALSE(XPCParse::objectWithXPCObject(XPCObject::error(platform::ipc::ErrorEvent::ConnectionInvalid)));
}

TEST(XPCParse, AListWithANullElementBeforeItsLastRaises)
{
    const XPCObject list = XPCObject::array({ XPCObject::int64(1), XPCObject(), XPCObject::int64(2) });
    try {
        XPCParse::arrayWithContentsOfXPCObject(list);
        FAIL() << "the conversion did not raise";
    } catch (const platform::Exception& exception) {
        EXPECT_EQ(exception.name(), "NSRangeException");
        EXPECT_EQ(exception.reason(), "*** -[__NSArrayM insertObject:atIndex:]: index 2 beyond bounds [0 .. 0]");
    }
}

TEST(XPCParse, AListWithANullFirstElementRaisesAtTheNextElement)
{
    EXPECT_THROW(XPCParse::arrayWithContentsOfXPCObject(XPCObject::array({ XPCObject(), XPCObject::string("a") })),
        platform::Exception);
}

TEST(XPCParse, AListWhoseNullElementsAreAllAtTheEndConvertsWithoutThem)
{
    const Object list = XPCParse::arrayWithContentsOfXPCObject(
        XPCObject::array({ XPCObject::string("a"), XPCObject(), XPCObject::endpoint("x") }));
    ASSERT_EQ(list.arrayIf()->size(), 1u);
    EXPECT_EQ(list.arrayIf()->front(), Object(Value("a")));
}

TEST(XPCParse, ADictionaryDropsEntriesThatConvertToNothing)
{
    const Object dictionary = XPCParse::dictionaryWithContentsOfXPCObject(XPCObject::dictionary(
        { { "null", XPCObject() }, { "text", XPCObject::string("t") }, { "bad utf-8", XPCObject::string("\xff") } }));
    ASSERT_EQ(dictionary.dictionaryIf()->size(), 1u);
    EXPECT_EQ(*dictionary.find("text"), Object(Value("t")));
}

TEST(XPCParse, AKeyThatIsNotUtf8TextDropsItsEntry)
{
    const Object dictionary = XPCParse::dictionaryWithContentsOfXPCObject(
        XPCObject::dictionary({ { "\xc3", XPCObject::int64(1) }, { "ok", XPCObject::int64(2) } }));
    EXPECT_EQ(dictionary.dictionaryIf()->size(), 1u);
}

TEST(XPCParse, StringsTravelAsTheirUtf8Text)
{
    EXPECT_EQ(convert(Value("zoë ✓")), XPCObject::string("zoë ✓"));
    EXPECT_EQ(travel(Value("zoë ✓")), Object(Value("zoë ✓")));
}

TEST(XPCParse, AFileHandleTravelsAsADuplicateOfItsDescriptor)
{
    char path[] = "/tmp/xpcparse-XXXXXX";
    platform::OwnedFd file(::mkstemp(path));
    ::unlink(path);
    ASSERT_EQ(::write(file.get(), "contents", 8), 8);
    const FileHandle handle(platform::OwnedFd::duplicate(file.get()));

    const XPCObject sent = convert(handle);
    EXPECT_EQ(sent.type(), Type::FileDescriptor);
    EXPECT_NE(sent.descriptor(), handle.fileDescriptor());

    const auto received = XPCParse::fileHandleWithXPCObject(sent);
    ASSERT_TRUE(received);
    EXPECT_NE(received->fileDescriptor(), sent.descriptor());
    char buffer[8];
    ASSERT_EQ(::pread(received->fileDescriptor(), buffer, 8, 0), 8);
    EXPECT_EQ(std::string(buffer, 8), "contents");
}

TEST(XPCParse, AUuidTravelsAsItsSixteenBytes)
{
    const XPCUUID uuid = XPCUUID::uuid();
    const XPCObject sent = convert(uuid);
    EXPECT_EQ(*sent.uuidIf(), uuid.uuidRef());
    EXPECT_EQ(travel(uuid), Object(uuid));
}

TEST(XPCParse, NestedContainersConvertInBothDirections)
{
    const Value record = Value::dictionary({ { "list", Value::array({ Value::integer(1), Value("two"), Value::dictionary({ { "k", Value::real(0.5) } }) }) },
        { "data", Value::data({ 7 }) } });
    const Object received = travel(record);
    EXPECT_EQ(received.value(), record);
}
