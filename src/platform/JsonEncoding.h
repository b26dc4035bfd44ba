#pragma once

// The Unicode encodings a JSON text may come in. The framework's reader takes UTF-8, UTF-16 and UTF-32 in either
// byte order, with or without a byte-order mark; so does ours, by the detection of RFC 4627 section 3 and RFC 8259
// section 8.1: a byte-order mark names the encoding and is dropped, and without one the zero bytes among the first
// four tell the encoding, since a JSON text starts with ASCII characters.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The JSON text in `bytes` as UTF-8: `bytes` itself when it is UTF-8 without a mark (nothing is copied), else the text
// after its mark, or the text transcoded into `storage`. Raises JsonError for bytes the encoding found cannot hold
// (an odd UTF-16 length, a lone surrogate, a UTF-32 unit beyond U+10FFFF); UTF-8 itself is checked by the parser.
std::string_view jsonTextAsUtf8(std::string_view bytes, std::string& storage);

// When the text that starts with `start` (its first four bytes, or all of it when shorter) is UTF-8, the length of its
// byte-order mark (0 or 3); absent when it is UTF-16 or UTF-32.
std::optional<std::size_t> utf8MarkLength(std::string_view start);

}
