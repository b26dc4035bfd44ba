// JSON texts in every Unicode encoding the reader takes: UTF-8 with or without a byte-order mark, UTF-16 and UTF-32
// in either byte order, with or without one.

#include "platform/Json.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using platform::JsonError;
using platform::readJson;
using platform::Value;

namespace {

// A document with text beyond ASCII, beyond the basic plane (a surrogate pair in UTF-16) and a number.
const std::string document = "{\"name\":\"Gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x8C\x8D\",\"size\":[12,-3.5,null,true]}";

Value expected()
{
    return Value::dictionary({ { "name", Value("Gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x8C\x8D") },
        { "size", Value::array({ Value::integer(12), Value::real(-3.5), Value::null(), Value::boolean(true) }) } });
}

void appendUnit(std::string& out, std::uint32_t unit, int width, bool bigEndian)
{
    for (int index = 0; index < width; ++index) {
        int shift = 8 * (bigEndian ? width - 1 - index : index);
        out += static_cast<char>((unit >> shift) & 0xFF);
    }
}

// `utf8` in UTF-16 or UTF-32 (width 2 or 4), with the byte-order mark when `marked`.
std::string encoded(const std::string& utf8, int width, bool bigEndian, bool marked)
{
    std::string out;
    if (marked)
        appendUnit(out, 0xFEFF, width, bigEndian);
    for (std::size_t position = 0; position < utf8.size();) {
        std::uint32_t codePoint = platform::decodeUtf8(utf8, position);
        if (width == 2 && codePoint >= 0x10000) {
            appendUnit(out, 0xD800 + ((codePoint - 0x10000) >> 10), 2, bigEndian);
            appendUnit(out, 0xDC00 + ((codePoint - 0x10000) & 0x3FF), 2, bigEndian);
        } else {
            appendUnit(out, codePoint, width, bigEndian);
        }
    }
    return out;
}

TEST(JsonEncoding, Utf8WithAByteOrderMarkIsRead)
{
    EXPECT_EQ(readJson("\xEF\xBB\xBF" + document), expected());
}

TEST(JsonEncoding, Utf16BigAndLittleEndianAreReadWithAndWithoutAMark)
{
    for (bool bigEndian : { true, false }) {
        for (bool marked : { true, false }) {
            SCOPED_TRACE(std::string(bigEndian ? "big" : "little") + (marked ? " endian, marked" : " endian"));
            EXPECT_EQ(readJson(encoded(document, 2, bigEndian, marked)), expected());
        }
    }
}

TEST(JsonEncoding, Utf32BigAndLittleEndianAreReadWithAndWithoutAMark)
{
    for (bool bigEndian : { true, false }) {
        for (bool marked : { true, false }) {
            SCOPED_TRACE(std::string(bigEndian ? "big" : "little") + (marked ? " endian, marked" : " endian"));
            EXPECT_EQ(readJson(encoded(document, 4, bigEndian, marked)), expected());
        }
    }
}

TEST(JsonEncoding, AOneCharacterFragmentIsReadInUtf16AndUtf32)
{
    platform::JsonReadOptions fragments;
    fragments.allowFragments = true;
    EXPECT_EQ(readJson(encoded("7", 2, false, false), fragments), Value::integer(7));
    EXPECT_EQ(readJson(encoded("7", 2, true, false), fragments), Value::integer(7));
    EXPECT_EQ(readJson(encoded("7", 4, false, false), fragments), Value::integer(7));
    EXPECT_EQ(readJson(encoded("7", 4, true, false), fragments), Value::integer(7));
}

TEST(JsonEncoding, BytesTheEncodingCannotHoldAreRefused)
{
    std::string utf16 = encoded("[\"a\"]", 2, false, false);
    // An odd length.
    EXPECT_THROW(readJson(utf16 + "x"), JsonError);
    // A lone high surrogate, and a lone low one.
    std::string loneHigh = encoded("[\"", 2, false, false) + std::string("\x3D\xD8", 2) + encoded("\"]", 2, false, false);
    EXPECT_THROW(readJson(loneHigh), JsonError);
    std::string loneLow = encoded("[\"", 2, false, false) + std::string("\x0D\xDC", 2) + encoded("\"]", 2, false, false);
    EXPECT_THROW(readJson(loneLow), JsonError);
    // A UTF-32 unit beyond U+10FFFF, and a length that is not a multiple of four.
    std::string utf32 = encoded("[1]", 4, true, false);
    EXPECT_THROW(readJson(encoded("[\"", 4, true, false) + std::string("\x00\x11\x00\x00", 4) + encoded("\"]", 4, true, false)), JsonError);
    EXPECT_THROW(readJson(utf32 + std::string("\x00", 1)), JsonError);
}

TEST(JsonEncoding, AMarkAloneOrAMarkInsideTheTextIsNotJson)
{
    EXPECT_THROW(readJson("\xEF\xBB\xBF"), JsonError);
    EXPECT_THROW(readJson("\xEF\xBB\xBF\xEF\xBB\xBF" + document), JsonError);
}

}
