#include "platform/IpcObject.h"

#include "platform/Exception.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace platform::ipc;
using platform::OwnedFd;

TEST(IpcObject, ScalarAccessGivesZeroForAnotherType)
{
    Object text = Object::string("1");
    EXPECT_EQ(text.int64Value(), 0);
    EXPECT_FALSE(text.boolValue());
    EXPECT_EQ(text.dataIf(), nullptr);
    EXPECT_EQ(text.descriptor(), -1);
    EXPECT_FALSE(text.duplicateDescriptor());
    EXPECT_FALSE(text.sharedMemoryBytes());
}

TEST(IpcObject, SettingAKeyAgainReplacesItsValue)
{
    Object dictionary = Object::dictionary();
    dictionary.set("key", Object::int64(1));
    dictionary.set("key", Object::int64(2));
    EXPECT_EQ(dictionary.count(), 1u);
    EXPECT_EQ(dictionary.find("key")->int64Value(), 2);
}

TEST(IpcObject, CopiesDoNotSeeLaterChanges)
{
    Object original = Object::array({ Object::int64(1) });
    Object copy = original;
    copy.append(Object::int64(2));
    EXPECT_EQ(original.count(), 1u);
    EXPECT_EQ(copy.count(), 2u);
}

TEST(IpcObject, ContainerOperationsOnOtherTypesRaise)
{
    Object number = Object::int64(1);
    EXPECT_THROW(number.append(Object()), platform::Exception);
    EXPECT_THROW(number.set("k", Object()), platform::Exception);
    EXPECT_EQ(number.find("k"), nullptr);
}

TEST(IpcObject, ErrorEventsCarryTheirDescriptionLikeADictionary)
{
    Object event = Object::error(ErrorEvent::ConnectionInterrupted, { { errorDescriptionKey, Object::string("gone") } });
    EXPECT_EQ(event.type(), Type::Error);
    EXPECT_EQ(event.errorEventIf(), ErrorEvent::ConnectionInterrupted);
    ASSERT_NE(event.stringForKey(errorDescriptionKey), nullptr);
    EXPECT_EQ(*event.stringForKey(errorDescriptionKey), "gone");
    EXPECT_EQ(Object::error(ErrorEvent::ConnectionInvalid).stringForKey(errorDescriptionKey), nullptr);
}

TEST(IpcObject, ADescriptorValueHoldsItsOwnDuplicateAndClosesItWhenTheLastCopyGoes)
{
    OwnedFd original(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    int held = -1;
    {
        auto value = Object::fileDescriptor(original.get());
        ASSERT_TRUE(value);
        held = value->descriptor();
        EXPECT_NE(held, original.get());
        Object copy = *value;
        EXPECT_EQ(copy.descriptor(), held);
    }
    EXPECT_EQ(::fcntl(held, F_GETFD), -1) << "the duplicate is closed";
    EXPECT_NE(::fcntl(original.get(), F_GETFD), -1) << "the caller's descriptor stays open";
}

TEST(IpcObject, ADescriptorThatCannotBeDuplicatedGivesNoValue) { EXPECT_FALSE(Object::fileDescriptor(-1)); }
