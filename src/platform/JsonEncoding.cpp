#include "platform/JsonEncoding.h"

#include "platform/Json.h"

#include <cstdint>

namespace platform {

namespace {

    enum class Encoding { Utf8, Utf16BigEndian, Utf16LittleEndian, Utf32BigEndian, Utf32LittleEndian };

    struct Detected {
        Encoding encoding;
        std::size_t markLength;
    };

    Detected detect(std::string_view bytes)
    {
        auto at = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
        const std::size_t size = bytes.size();
        // Marks first; the UTF-32 little-endian mark starts with the UTF-16 one, so it is tested before it.
        if (size >= 4 && at(0) == 0 && at(1) == 0 && at(2) == 0xFE && at(3) == 0xFF)
            return { Encoding::Utf32BigEndian, 4 };
        if (size >= 4 && at(0) == 0xFF && at(1) == 0xFE && at(2) == 0 && at(3) == 0)
            return { Encoding::Utf32LittleEndian, 4 };
        if (size >= 3 && at(0) == 0xEF && at(1) == 0xBB && at(2) == 0xBF)
            return { Encoding::Utf8, 3 };
        if (size >= 2 && at(0) == 0xFE && at(1) == 0xFF)
            return { Encoding::Utf16BigEndian, 2 };
        if (size >= 2 && at(0) == 0xFF && at(1) == 0xFE)
            return { Encoding::Utf16LittleEndian, 2 };
        // No mark: 00 00 00 xx, xx 00 00 00, 00 xx, xx 00 (RFC 4627 section 3).
        if (size >= 4 && at(0) == 0 && at(1) == 0 && at(2) == 0 && at(3) != 0)
            return { Encoding::Utf32BigEndian, 0 };
        if (size >= 4 && at(0) != 0 && at(1) == 0 && at(2) == 0 && at(3) == 0)
            return { Encoding::Utf32LittleEndian, 0 };
        if (size >= 2 && at(0) == 0 && at(1) != 0)
            return { Encoding::Utf16BigEndian, 0 };
        if (size >= 2 && at(0) != 0 && at(1) == 0)
            return { Encoding::Utf16LittleEndian, 0 };
        return { Encoding::Utf8, 0 };
    }

    [[noreturn]] void raiseNotIn(std::string_view encoding)
    {
        throw JsonError("The data couldn't be read because it isn't in the correct format. (not valid "
            + std::string(encoding) + " text)");
    }

    void appendUtf8(std::string& out, std::uint32_t codePoint)
    {
        if (codePoint < 0x80) {
            out += static_cast<char>(codePoint);
        } else if (codePoint < 0x800) {
            out += static_cast<char>(0xC0 | (codePoint >> 6));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        } else if (codePoint < 0x10000) {
            out += static_cast<char>(0xE0 | (codePoint >> 12));
            out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (codePoint >> 18));
            out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        }
    }

    // The code unit of `width` bytes at `offset`.
    std::uint32_t unitAt(std::string_view bytes, std::size_t offset, std::size_t width, bool bigEndian)
    {
        std::uint32_t unit = 0;
        for (std::size_t index = 0; index < width; ++index) {
            auto byte = static_cast<unsigned char>(bytes[offset + (bigEndian ? index : width - 1 - index)]);
            unit = (unit << 8) | byte;
        }
        return unit;
    }

    bool isHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
    bool isLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

    void transcodeUtf16(std::string_view bytes, bool bigEndian, std::string& out)
    {
        if (bytes.size() % 2)
            raiseNotIn("UTF-16");
        out.reserve(bytes.size());
        for (std::size_t offset = 0; offset < bytes.size(); offset += 2) {
            std::uint32_t unit = unitAt(bytes, offset, 2, bigEndian);
            if (isHighSurrogate(unit)) {
                std::uint32_t low = offset + 2 < bytes.size() ? unitAt(bytes, offset + 2, 2, bigEndian) : 0;
                if (!isLowSurrogate(low))
                    raiseNotIn("UTF-16");
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                offset += 2;
            } else if (isLowSurrogate(unit)) {
                raiseNotIn("UTF-16");
            }
            appendUtf8(out, unit);
        }
    }

    void transcodeUtf32(std::string_view bytes, bool bigEndian, std::string& out)
    {
        if (bytes.size() % 4)
            raiseNotIn("UTF-32");
        out.reserve(bytes.size() / 2);
        for (std::size_t offset = 0; offset < bytes.size(); offset += 4) {
            std::uint32_t unit = unitAt(bytes, offset, 4, bigEndian);
            if (unit > 0x10FFFF || isHighSurrogate(unit) || isLowSurrogate(unit))
                raiseNotIn("UTF-32");
            appendUtf8(out, unit);
        }
    }

}

std::optional<std::size_t> utf8MarkLength(std::string_view start)
{
    const Detected detected = detect(start);
    if (detected.encoding != Encoding::Utf8)
        return std::nullopt;
    return detected.markLength;
}

std::string_view jsonTextAsUtf8(std::string_view bytes, std::string& storage)
{
    const Detected detected = detect(bytes);
    const std::string_view text = bytes.substr(detected.markLength);
    switch (detected.encoding) {
    case Encoding::Utf8:
        return text;
    case Encoding::Utf16BigEndian:
    case Encoding::Utf16LittleEndian:
        transcodeUtf16(text, detected.encoding == Encoding::Utf16BigEndian, storage);
        return storage;
    case Encoding::Utf32BigEndian:
    case Encoding::Utf32LittleEndian:
        transcodeUtf32(text, detected.encoding == Encoding::Utf32BigEndian, storage);
        return storage;
    }
    return text;
}

}
