#pragma once

// Base64 text (RFC 4648: "A"-"Z", "a"-"z", "0"-"9", "+", "/", padding "=") for byte buffers and strings.
//
// Encoding wraps lines at a width rounded down to a multiple of four, joined by "\r\n" with none after the last
// line (76 and 64 give the MIME and PEM line lengths); width 0, or one not below the text's length, gives one line.
// Decoding is lenient about what surrounds the groups: every character outside the alphabet and "=" is dropped
// first (line breaks of any kind, spaces, anything else), then the rest must be standard padded Base64.
//
// Empty input, text that does not decode, and a decoded result of zero bytes all give nothing (absent), never an
// empty buffer or string.

#include "platform/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace util {

// --- Byte buffers
std::optional<platform::Bytes> dataWithBase64EncodedString(std::string_view string);
std::optional<std::string> base64EncodedStringWithWrapWidth(const platform::Bytes& data, std::size_t wrapWidth);
std::optional<std::string> base64EncodedString(const platform::Bytes& data);

// --- Strings (UTF-8 text)
// Decodes, then reads the bytes as UTF-8; nothing when they are not valid UTF-8.
std::optional<std::string> stringWithBase64EncodedString(std::string_view string);
// Encodes the string's UTF-8 bytes; bytes that are not UTF-8 are replaced by U+FFFD rather than failing.
std::optional<std::string> base64EncodedStringWithWrapWidth(std::string_view string, std::size_t wrapWidth);
std::optional<std::string> base64EncodedString(std::string_view string);
std::optional<std::string> base64DecodedString(std::string_view string);
std::optional<platform::Bytes> base64DecodedData(std::string_view string);

}
