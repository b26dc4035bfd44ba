#include "util/Base64.h"

#include "platform/Base64Codec.h"
#include "platform/Utf8.h"

#include <cstdint>

namespace util {

using platform::Bytes;

namespace {

constexpr std::string_view lineBreak = "\r\n";

std::optional<std::string> encode(const std::uint8_t* data, std::size_t size, std::size_t wrapWidth)
{
    if (size == 0)
        return std::nullopt;
    std::string line = platform::encodeBase64(data, size);
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

}

std::optional<Bytes> dataWithBase64EncodedString(std::string_view string)
{
    std::string kept;
    kept.reserve(string.size());
    for (const char c : string) {
        if (platform::isBase64Character(c))
            kept += c;
    }
    auto bytes = platform::decodeBase64(kept);
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
