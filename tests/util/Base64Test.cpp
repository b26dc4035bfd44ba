#include "util/Base64.h"

#include <gtest/gtest.h>

#include <numeric>

using platform::Bytes;
using util::base64DecodedData;
using util::base64DecodedString;
using util::base64EncodedString;
using util::base64EncodedStringWithWrapWidth;
using util::dataWithBase64EncodedString;
using util::stringWithBase64EncodedString;

namespace {

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::vector<std::string> split(const std::string& text, const std::string& separator)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t found; (found = text.find(separator, start)) != std::string::npos; start = found + separator.size())
        pieces.push_back(text.substr(start, found - start));
    pieces.push_back(text.substr(start));
    return pieces;
}

}

// ---------------------------------------------------------------- Encoding

TEST(Base64, Width70WrapsAt68Characters)
{
    const auto text = base64EncodedStringWithWrapWidth(Bytes(100, 0x5A), 70);
    ASSERT_TRUE(text);
    const auto lines = split(*text, "\r\n");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), 68u);
    EXPECT_EQ(lines[1].size(), 136u - 68u);
}

TEST(Base64, AThreeByteInputEncodesToFourCharactersNeverWrappedAtWidthFourOrMore)
{
    for (const std::size_t width : { 4u, 5u, 7u, 8u, 76u })
        EXPECT_EQ(base64EncodedStringWithWrapWidth(bytesOf("abc"), width), "YWJj") << width;
}

TEST(Base64, GroupsSeparatedByALineBreakOrASpaceDecodeLikeTheGroupsWrittenTogether)
{
    const auto together = dataWithBase64EncodedString("YWJjZGVm");
    ASSERT_TRUE(together);
    EXPECT_EQ(*together, bytesOf("abcdef"));
    EXPECT_EQ(dataWithBase64EncodedString("YWJj\r\nZGVm"), together);
    EXPECT_EQ(dataWithBase64EncodedString("YWJj ZGVm"), together);
}

TEST(Base64, TextMadeOnlyOfCharactersOutsideTheAlphabetDecodesToNothing)
{
    EXPECT_FALSE(dataWithBase64EncodedString("****"));
}

TEST(Base64, AnEmptyStringEncodesToNothingNotToAnEmptyString)
{
    EXPECT_FALSE(base64EncodedString(std::string_view("")));
    EXPECT_FALSE(base64EncodedStringWithWrapWidth(std::string_view(""), 76));
}

TEST(Base64, EncodingFollowsTheStandardTestVectors)
{
    const std::pair<const char*, const char*> vectors[] = { { "f", "Zg==" }, { "fo", "Zm8=" }, { "foo", "Zm9v" },
        { "foob", "Zm9vYg==" }, { "fooba", "Zm9vYmE=" }, { "foobar", "Zm9vYmFy" } };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(base64EncodedString(bytesOf(plain)), encoded);
        EXPECT_EQ(base64EncodedString(std::string_view(plain)), encoded);
        EXPECT_EQ(stringWithBase64EncodedString(encoded), plain);
    }
}

TEST(Base64, TheWholeAlphabetIsUsed)
{
    EXPECT_EQ(base64EncodedString(Bytes { 0xFB, 0xEF, 0xFF }), "++//");
    EXPECT_EQ(dataWithBase64EncodedString("++//"), (Bytes { 0xFB, 0xEF, 0xFF }));
}

TEST(Base64, EmptyDataEncodesToNothing)
{
    EXPECT_FALSE(base64EncodedString(Bytes {}));
    EXPECT_FALSE(base64EncodedStringWithWrapWidth(Bytes {}, 0));
}

TEST(Base64, MimeWidthGivesLinesOf76JoinedByCarriageReturnAndLineFeedWithNoneAfterTheLast)
{
    const auto text = base64EncodedStringWithWrapWidth(Bytes(200, 1), 76);
    ASSERT_TRUE(text);
    const auto lines = split(*text, "\r\n");
    ASSERT_EQ(lines.size(), 4u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(lines[i].size(), 76u);
    EXPECT_EQ(lines[3].size(), 268u - 3 * 76u);
    EXPECT_NE(text->substr(text->size() - 2), "\r\n");
    EXPECT_EQ(text->find('\n', 0), 77u);
}

TEST(Base64, PemWidthGivesLinesOf64)
{
    const auto lines = split(*base64EncodedStringWithWrapWidth(Bytes(96, 7), 64), "\r\n");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), 64u);
    EXPECT_EQ(lines[1].size(), 64u);
}

TEST(Base64, WidthZeroOrNotBelowTheLengthGivesOneLine)
{
    const Bytes data(30, 9); // 40 characters
    EXPECT_EQ(base64EncodedStringWithWrapWidth(data, 0)->size(), 40u);
    EXPECT_EQ(base64EncodedStringWithWrapWidth(data, 40)->size(), 40u);
    EXPECT_EQ(base64EncodedStringWithWrapWidth(data, 1000)->size(), 40u);
    EXPECT_EQ(base64EncodedStringWithWrapWidth(data, 39)->size(), 40u + 2u);
    EXPECT_EQ(base64EncodedString(data), base64EncodedStringWithWrapWidth(data, 0));
}

TEST(Base64, WidthsBelowFourDoNotWrap)
{
    const Bytes data(30, 9);
    for (const std::size_t width : { 1u, 2u, 3u })
        EXPECT_EQ(base64EncodedStringWithWrapWidth(data, width), base64EncodedString(data)) << width;
}

TEST(Base64, StringsAreEncodedAsTheirUtf8Bytes)
{
    EXPECT_EQ(base64EncodedString(std::string_view("\xC3\xA9t\xC3\xA9")), "w6l0w6k=");
}

TEST(Base64, BytesThatAreNotUtf8AreReplacedWhenAStringIsEncoded)
{
    EXPECT_EQ(base64EncodedString(std::string_view("a\xFF")), base64EncodedString(std::string_view("a\xEF\xBF\xBD")));
}

// ---------------------------------------------------------------- Decoding

TEST(Base64, EmptyTextDecodesToNothing)
{
    EXPECT_FALSE(dataWithBase64EncodedString(""));
    EXPECT_FALSE(stringWithBase64EncodedString(""));
}

TEST(Base64, AnyForeignCharacterIsDroppedBeforeDecoding)
{
    EXPECT_EQ(dataWithBase64EncodedString("Zm9v\nYmFy"), bytesOf("foobar"));
    EXPECT_EQ(dataWithBase64EncodedString("Zm9v\rYmFy"), bytesOf("foobar"));
    EXPECT_EQ(dataWithBase64EncodedString("\tZ-m_9*v.Y\xC3\xA9mFy!\n"), bytesOf("foobar"));
}

TEST(Base64, PaddingOnlyOnALineOfItsOwnDecodesToNothing)
{
    EXPECT_FALSE(dataWithBase64EncodedString("===="));
    EXPECT_FALSE(dataWithBase64EncodedString("\r\n"));
}

TEST(Base64, TextThatIsNotStandardBase64DecodesToNothing)
{
    for (const char* text : { "Zm9", "Zm9vY", "Zg=", "Zg==Zg==", "Z===", "Zm=v", "=Zm9" })
        EXPECT_FALSE(dataWithBase64EncodedString(text)) << text;
}

TEST(Base64, DecodedBytesThatAreNotUtf8GiveNoString)
{
    EXPECT_EQ(dataWithBase64EncodedString("/w=="), (Bytes { 0xFF }));
    EXPECT_FALSE(stringWithBase64EncodedString("/w=="));
}

TEST(Base64, StringDecodingReadsTheBytesAsUtf8)
{
    EXPECT_EQ(stringWithBase64EncodedString("w6l0w6k="), "\xC3\xA9t\xC3\xA9");
}

TEST(Base64, DecodedOperationsOnATextAreTheDecodersAppliedToIt)
{
    EXPECT_EQ(base64DecodedString("Zm9v"), stringWithBase64EncodedString("Zm9v"));
    EXPECT_EQ(base64DecodedData("Zm9v\r\nYg=="), dataWithBase64EncodedString("Zm9v\r\nYg=="));
    EXPECT_FALSE(base64DecodedString("****"));
    EXPECT_FALSE(base64DecodedData(""));
}

TEST(Base64, EveryByteValueSurvivesAWrappedRoundTrip)
{
    Bytes data(256 * 3);
    std::iota(data.begin(), data.end(), 0);
    for (const std::size_t width : { 0u, 4u, 64u, 70u, 76u })
        EXPECT_EQ(dataWithBase64EncodedString(*base64EncodedStringWithWrapWidth(data, width)), data) << width;
}
