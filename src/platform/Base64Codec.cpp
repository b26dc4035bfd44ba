#include "platform/Base64Codec.h"

#include <algorithm>
#include <array>

namespace platform {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char padding = '=';

// The value of each alphabet character, or -1 for any other byte.
constexpr std::array<std::int8_t, 256> decodingTable = [] {
    std::array<std::int8_t, 256> table {};
    table.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    return table;
}();

}

bool isBase64Character(char c) { return c == padding || decodingTable[static_cast<unsigned char>(c)] >= 0; }

std::string encodeBase64(const std::uint8_t* data, std::size_t size)
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

std::optional<Bytes> decodeBase64(std::string_view text)
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
                return std::nullopt; // "=" or a foreign character where an alphabet character should be
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
