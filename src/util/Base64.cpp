#include "util/Base64.h"

#include "platform/Utf8.h"

#include <array>
#include <cstdint>

namespace util {

using platform::Bytes;

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char padding = '=';
constexpr std::string_view lineBreak = "\r\n";

// The value of each alphabet character, or -1 for any other byte.
constexpr std::array<std::int8_t, 256> decodingTable = [] {
    std::array<std::int8_t, 256> table {};
    table.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    return table;
}();

bool isKept(char c) { return c == padding || decodingTable[static_cast<unsigned char>(c)] >= 0; }

std::string encodeLine(const std::uint8_t* data, std::size_t size)
{
    std::string line;
    line.reserve((size + 2) / 3 * 4);
    for (std::size_t i = 0; i < size; i += 3) {
        const std::size_t available = std::min<std::size_t>(3, size - i);
        std::uint32_t group = static_cast<std::uint32_t>(data[i]) << 16;
        if (available > 1)
            group |= static_cast<std::uint32_t>(data[i + 1]) << 8;
        if (available > 2)
            group |= data[i + 2];
        line += alphabet[(group >> 18) & 0x3F];
        line += alphabet[(group >> 12) & 0x3F];
        line += available > 1 ? alphabet[(group >> 6) & 0x3F] : padding;
        line += available > 2 ? alphabet[group & 0x3F] : padding;
    }
    return line;
}

std::optional<std::string> encode(const std::uint8_t* data, std::size_t size, std::size_t wrapWidth)
{
    if (size == 0)
        return std::nullopt;
    std::string line = encodeLine(data, size);
    // Widths below four round down to no line at all; they are taken as "do not wrap" rather than looping forever.
    const std::size_t lineLength = wrapWidth / 4 * 4;
    if (lineLength == 0 || wrapWidth >= line.size())
        return line;
    std::string wrapped;
    wrapped.reserve(line.size() + line.size() / lineLength * lineBreak.size());
    for (std::size_t start = 0; start < line.size(); start += lineLength) {
        if (start > 0)
            wrapped += lineBreak;
        wrapped.append(line, start, lineLength);
    }
    return wrapped;
}

// Standard padded Base64 of the characters kept: groups of four, "=" only in the last group's last one or two
// places.
std::optional<Bytes> decodeStrict(std::string_view text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const std::size_t pads = text[i + 3] != padding ? 0 : text[i + 2] != padding ? 1 : 2;
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 4 - pads; ++j) {
            const std::int8_t value = decodingTable[static_cast<unsigned char>(text[i + j])];
            if (value < 0)
                return std::nullopt; // "=" where a character should be
            group = (group << 6) | static_cast<std::uint32_t>(value);
        }
        if (pads > 0 && !last)
            return std::nullopt;
        group <<= 6 * pads;
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (pads < 2)
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        if (pads < 1)
            bytes.push_back(static_cast<std::uint8_t>(group));
    }
    return bytes;
}

}

std::optional<Bytes> dataWithBase64EncodedString(std::string_view string)
{
    std::string kept;
    kept.reserve(string.size());
    for (const char c : string) {
        if (isKept(c))
            kept += c;
    }
    auto bytes = decodeStrict(kept);
    if (!bytes || bytes->empty())
        return std::nullopt;
    return bytes;
}

std::optional<std::string> base64EncodedStringWithWrapWidth(const Bytes& data, std::size_t wrapWidth)
{
    return encode(data.data(), data.size(), wrapWidth);
}

std::optional<std::string> base64EncodedString(const Bytes& data) { return base64EncodedStringWithWrapWidth(data, 0); }

std::optional<std::string> stringWithBase64EncodedString(std::string_view string)
{
    const auto bytes = dataWithBase64EncodedString(string);
    if (!bytes)
        return std::nullopt;
    std::string text(bytes->begin(), bytes->end());
    if (!platform::isValidUtf8(text))
        return std::nullopt;
    return text;
}

std::optional<std::string> base64EncodedStringWithWrapWidth(std::string_view string, std::size_t wrapWidth)
{
    const std::string text = platform::replacingInvalidUtf8(string);
    return encode(reinterpret_cast<const std::uint8_t*>(text.data()), text.size(), wrapWidth);
}

std::optional<std::string> base64EncodedString(std::string_view string)
{
    return base64EncodedStringWithWrapWidth(string, 0);
}

std::optional<std::string> base64DecodedString(std::string_view string) { return stringWithBase64EncodedString(string); }

std::optional<Bytes> base64DecodedData(std::string_view string) { return dataWithBase64EncodedString(string); }

}
