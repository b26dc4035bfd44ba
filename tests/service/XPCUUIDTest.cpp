#include "service/XPCUUID.h"

#include <gtest/gtest.h>

#include <regex>

using service::XPCUUID;

namespace {
const platform::ipc::Uuid sample = { 0x68, 0x75, 0x3a, 0x44, 0x4d, 0x6f, 0x12, 0x26, 0x9c, 0x60, 0x00, 0x50, 0xe4, 0xc0, 0x00, 0x67 };
}

TEST(XPCUUID, TextIsTheCanonicalUpperCaseForm)
{
    EXPECT_EQ(XPCUUID(sample).string(), "68753A44-4D6F-1226-9C60-0050E4C00067");
}

TEST(XPCUUID, DescriptionNamesTheClassAndTheText)
{
    EXPECT_EQ(XPCUUID(sample).description(), "<XPCUUID 68753A44-4D6F-1226-9C60-0050E4C00067>");
}

TEST(XPCUUID, ANewUuidIsRandomAndWellFormed)
{
    const XPCUUID first = XPCUUID::uuid();
    const XPCUUID second = XPCUUID::uuid();
    EXPECT_FALSE(first.isEqual(second));
    EXPECT_TRUE(std::regex_match(first.string(), std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
}

TEST(XPCUUID, TwoUuidsAreEqualExactlyWhenTheirTextsAreAndThenHashAlike)
{
    const XPCUUID a(sample);
    const XPCUUID b(sample);
    EXPECT_TRUE(a.isEqual(b));
    EXPECT_EQ(a.hash(), b.hash());
    platform::ipc::Uuid other = sample;
    other[15] ^= 1;
    EXPECT_FALSE(a.isEqual(XPCUUID(other)));
}

TEST(XPCUUID, ComesFromAndGoesToTheSixteenBytesOfAnIpcUuid)
{
    const auto uuid = XPCUUID::uuidWithXPCObject(platform::ipc::Object::uuid(sample));
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->uuidRef(), sample);
    EXPECT_EQ(uuid->newXPCObject(), platform::ipc::Object::uuid(sample));
    EXPECT_FALSE(XPCUUID::uuidWithXPCObject(platform::ipc::Object::string("68753A44-4D6F-1226-9C60-0050E4C00067")));
}
