#pragma once

// UTF-8 checks and repair shared by the JSON writer, the description printer and the IPC runtime.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

bool isValidUtf8(std::string_view text);

// `text` with every byte that is not part of a well-formed sequence replaced by U+FFFD, the replacement character.
std::string replacingInvalidUtf8(std::string_view text);

// Decodes the code point that starts at `text[position]` and advances `position` past it. The text must be valid
// UTF-8 (see isValidUtf8).
std::uint32_t decodeUtf8(std::string_view text, std::size_t& position);

}
