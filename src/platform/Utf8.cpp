#include "platform/Utf8.h"

namespace platform {

// Length of the sequence that `lead` starts, or 0 for a byte that cannot start one.
static int sequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Length of the well-formed sequence at `text[position]`, or 0 when none starts there (a stray or cut-off
// sequence, an overlong form, a surrogate or a code point beyond U+10FFFF).
static std::size_t validSequenceLength(std::string_view text, std::size_t position)
{
    const auto length = static_cast<std::size_t>(sequenceLength(static_cast<unsigned char>(text[position])));
    if (length == 0 || position + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[position + i]) & 0xC0) != 0x80)
            return 0;
    }
    if (length > 1) {
        std::size_t scan = position;
        const std::uint32_t codePoint = decodeUtf8(text, scan);
        const bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
        const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
        if (overlong || surrogate || codePoint > 0x10FFFF)
            return 0;
    }
    return length;
}

bool isValidUtf8(std::string_view text)
{
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t length = validSequenceLength(text, position);
        if (length == 0)
            return false;
        position += length;
    }
    return true;
}

std::string replacingInvalidUtf8(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size()) {
        if (const std::size_t length = validSequenceLength(text, position)) {
            result.append(text.substr(position, length));
            position += length;
        } else {
            result += "\xEF\xBF\xBD";
            ++position;
        }
    }
    return result;
}

std::uint32_t decodeUtf8(std::string_view text, std::size_t& position)
{
    const auto lead = static_cast<unsigned char>(text[position]);
    const int length = sequenceLength(lead);
    // A stray or cut-off sequence (possible only when the precondition is broken) reads as its lead byte rather
    // than reading past the end.
    if (length <= 1 || position + static_cast<std::size_t>(length) > text.size()) {
        ++position;
        return lead;
    }
    std::uint32_t codePoint = lead & (0x7F >> length);
    for (int i = 1; i < length; ++i)
        codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[position + i]) & 0x3F);
    position += length;
    return codePoint;
}

}
