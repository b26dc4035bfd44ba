#pragma once

// Standard padded Base64 (RFC 4648 alphabet) on byte buffers: the one codec behind the tagged data values of
// preference files and the lenient, line-wrapping Base64 text utilities.

#include "platform/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// One line of padded Base64, no line breaks.
std::string encodeBase64(const std::uint8_t* data, std::size_t size);

// Strict decoding: a length that is a multiple of four, "=" only in the last group's last one or two places, no
// character outside the alphabet. Absent when the text breaks any of these rules.
std::optional<Bytes> decodeBase64(std::string_view text);

// True for the 64 alphabet characters and "=".
bool isBase64Character(char c);

}
