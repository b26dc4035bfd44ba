#include "platform/OsVersion.h"

#include "platform/Log.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

namespace {

// Digits with an optional fraction ("1343", "1138.9"); no sign, exponent, spaces, "inf" or "nan".
std::optional<double> parseDecimal(std::string_view text)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const std::size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    const std::string_view fraction = point == std::string_view::npos ? std::string_view() : text.substr(point + 1);
    const bool wellFormed = !whole.empty() && std::all_of(whole.begin(), whole.end(), isDigit)
        && std::all_of(fraction.begin(), fraction.end(), isDigit);
    double value = 0;
    if (!wellFormed || std::from_chars(text.data(), text.data() + text.size(), value).ptr != text.data() + text.size()
        || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// Logs a malformed value the first time it is seen, not on every poll that asks for the version.
void reportMalformed(const std::string& text)
{
    static std::mutex mutex;
    static std::optional<std::string> lastReported;
    std::lock_guard lock(mutex);
    if (lastReported == text)
        return;
    lastReported = text;
    log("KORBANHOLD_APPKIT_VERSION \"%@\" is not a decimal number; using %@", text, currentAppKitVersionNumber);
}

}

double appKitVersionNumber()
{
    const char* variable = std::getenv("KORBANHOLD_APPKIT_VERSION");
    if (!variable)
        return currentAppKitVersionNumber;
    const std::string text = variable;
    if (const auto value = parseDecimal(text))
        return *value;
    reportMalformed(text);
    return currentAppKitVersionNumber;
}

}
