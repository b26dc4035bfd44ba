// Arbitrary bytes through the lenient Base64 decoder, and the same bytes through the encoder at a width taken from
// the input. What decodes must encode and decode back to the same bytes; what encodes must decode to its input.
#include "util/Base64.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto decoded = util::dataWithBase64EncodedString(text)) {
        if (util::dataWithBase64EncodedString(*util::base64EncodedString(*decoded)) != decoded)
            std::abort();
    }
    (void)util::stringWithBase64EncodedString(text);

    const platform::Bytes bytes(data, data + size);
    const std::size_t width = size > 0 ? data[0] : 0;
    const auto encoded = util::base64EncodedStringWithWrapWidth(bytes, width);
    if (encoded.has_value() == bytes.empty())
        std::abort();
    if (encoded && util::dataWithBase64EncodedString(*encoded) != bytes)
        std::abort();
    return 0;
}
