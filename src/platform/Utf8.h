#pragma once

// UTF-8 checks shared by the JSON writer, the description printer and the IPC runtime.

#include <cstdint>
#include <string_view>

namespace platform {

bool isValidUtf8(std::string_view text);

// Decodes the code point that starts at `text[position]` and advances `position` past it. The text must be valid
// UTF-8 (see isValidUtf8).
std::uint32_t decodeUtf8(std::string_view text, std::size_t& position);

}
