#include "sync/WireText.h"

#include "sync/Raises.h"
#include "util/ServicesUtilities.h"

#include <cctype>
#include <limits>

namespace engine {

using platform::Value;

std::optional<Value> copiedValue(const Value* value)
{
    return value ? std::optional<Value>(*value) : std::nullopt;
}

std::optional<std::string> serverFormPath(const Value* value)
{
    if (!value)
        return std::nullopt;
    if (!value->isString())
        raiseUnrecognizedSelector(*value, "substringFromIndex:");
    return util::ServicesUtilities::convertPathToWindows(value->string());
}

std::int64_t integerValue(const std::optional<Value>& value)
{
    if (!value)
        return 0;
    if (const platform::Number* number = value->numberIf())
        return number->isFloatingPoint() ? static_cast<std::int64_t>(number->doubleValue()) : number->int64Value();
    if (!value->isString())
        raiseUnrecognizedSelector(*value, "intValue");
    const std::string& text = value->string();
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t' || text[at] == '\n'))
        ++at;
    bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    // Saturates instead of overflowing, as the platform's reading of an over-long number does.
    std::int64_t magnitude = 0;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at) {
        int digit = text[at] - '0';
        if (magnitude > (std::numeric_limits<std::int64_t>::max() - digit) / 10)
            return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
        magnitude = magnitude * 10 + digit;
    }
    return negative ? -magnitude : magnitude;
}

}
