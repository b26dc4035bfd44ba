#include "platform/Utf8.h"

#include <gtest/gtest.h>

using platform::decodeUtf8;
using platform::isValidUtf8;
using platform::replacingInvalidUtf8;

TEST(Utf8, WellFormedTextOfEveryLengthIsValid)
{
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("plain"));
    EXPECT_TRUE(isValidUtf8("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"));
}

TEST(Utf8, StrayCutOffOverlongSurrogateAndTooLargeSequencesAreInvalid)
{
    for (const char* text : { "\x80", "\xC3", "\xE2\x82", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
             "\xF5\x80\x80\x80", "\xFF", "a\xC3(" })
        EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
}

TEST(Utf8, ReplacingInvalidBytesPutsOneReplacementCharacterPerByte)
{
    EXPECT_EQ(replacingInvalidUtf8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(replacingInvalidUtf8("\xC3\x28"), "\xEF\xBF\xBD(");
    EXPECT_EQ(replacingInvalidUtf8("\xC3\xA9"), "\xC3\xA9");
}

TEST(Utf8, DecodingACutOffSequenceStopsAtTheEnd)
{
    const std::string_view text("\xE2\x82", 2);
    std::size_t position = 0;
    EXPECT_EQ(decodeUtf8(text, position), 0xE2u);
    EXPECT_EQ(position, 1u);
}

TEST(Utf8, DecodingGivesTheCodePointAndAdvances)
{
    const std::string_view text("\xF0\x9F\x98\x80" "a");
    std::size_t position = 0;
    EXPECT_EQ(decodeUtf8(text, position), 0x1F600u);
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(decodeUtf8(text, position), static_cast<std::uint32_t>('a'));
}
