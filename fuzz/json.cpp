// Arbitrary bytes through the JSON reader. Whatever it accepts must describe itself, write back as JSON (plain and
// pretty) and read back from that text as an equal value, and read the same behind a UTF-8 byte-order mark when it
// is UTF-8; whatever it refuses must be refused with a JsonError. Bytes with zeros among the first four take the
// UTF-16 and UTF-32 readings.
#include "platform/Json.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using platform::JsonError;
using platform::Value;

static void checkAccepted(const Value& value)
{
    (void)value.description();
    platform::JsonReadOptions reading;
    reading.allowFragments = true;
    platform::JsonWriteOptions writing;
    writing.allowFragments = true;
    for (const bool pretty : { false, true }) {
        writing.prettyPrinted = pretty;
        if (!(platform::readJson(platform::writeJson(value, writing), reading) == value))
            std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    platform::JsonReadOptions options;
    for (const bool fragments : { false, true }) {
        options.allowFragments = fragments;
        try {
            const Value value = platform::readJson(text, options);
            checkAccepted(value);
            if (size >= 4 && data[0] && data[1] && data[2] && data[3]
                && !(platform::readJson("\xEF\xBB\xBF" + std::string(text), options) == value))
                std::abort();
        } catch (const JsonError&) {
        }
    }
    return 0;
}
