// Domain files and `korbanhold defaults` input are outside input: any bytes must give a value or a clear error,
// and every value read must be written back and read again as the same value.

#include "platform/PreferenceJson.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using platform::Value;

namespace {

// Reals may come back one unit in the last place away (the JSON parser of Boost 1.81 does not round every decimal
// text correctly), and a real with a whole value comes back as an integer, as the framework's serialiser writes it
// without a fraction. Everything else must be exactly the same, kinds and key order included.
bool closeEnough(double a, double b)
{
    return a == b || std::fabs(a - b) <= 4e-16 * std::fmax(std::fabs(a), std::fabs(b));
}

bool same(const Value& a, const Value& b)
{
    if (a.kind() != b.kind())
        return false;
    switch (a.kind()) {
    case Value::Kind::Number:
        if (a.number().isFloatingPoint() || b.number().isFloatingPoint())
            return closeEnough(a.number().doubleValue(), b.number().doubleValue());
        return a.number() == b.number();
    case Value::Kind::Date:
        return closeEnough(a.dateValue(), b.dateValue());
    case Value::Kind::Array:
        if (a.count() != b.count())
            return false;
        for (std::size_t i = 0; i < a.count(); ++i) {
            if (!same(a.at(i), b.at(i)))
                return false;
        }
        return true;
    case Value::Kind::Dictionary:
        if (a.count() != b.count())
            return false;
        for (std::size_t i = 0; i < a.count(); ++i) {
            if (a.entries()[i].first != b.entries()[i].first || !same(a.entries()[i].second, b.entries()[i].second))
                return false;
        }
        return true;
    default:
        return a == b;
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    platform::JsonReadOptions readOptions;
    readOptions.allowFragments = true;
    platform::JsonWriteOptions writeOptions;
    writeOptions.allowFragments = true;
    Value value;
    std::string written;
    try {
        value = platform::readPreferenceJson(text, readOptions);
        written = platform::writePreferenceJson(value, writeOptions);
    } catch (const platform::JsonError&) {
        return 0; // not JSON, a malformed tag, or a number too large for a double
    }
    if (!same(platform::readPreferenceJson(written, readOptions), value))
        std::abort();
    return 0;
}
