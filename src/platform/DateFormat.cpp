#include "platform/DateFormat.h"

#include "platform/Exception.h"

#include <fmt/format.h>

#include <cmath>

namespace platform {

std::optional<std::tm> calendarTime(double secondsSince1970, TimeZone zone)
{
    // Beyond about two billion years the year no longer fits the calendar's int; refusing earlier also keeps the
    // conversion to time_t in range.
    constexpr double calendarLimit = 6.0e16;
    if (!std::isfinite(secondsSince1970) || std::fabs(secondsSince1970) >= calendarLimit)
        return std::nullopt;
    const auto whole = static_cast<std::time_t>(std::floor(secondsSince1970));
    std::tm parts {};
    if (zone == TimeZone::Local) {
        // localtime_r need not look at TZ again; tzset makes a changed TZ count, as a new formatter would.
        tzset();
        if (!localtime_r(&whole, &parts))
            return std::nullopt;
    } else if (!gmtime_r(&whole, &parts)) {
        return std::nullopt;
    }
    return parts;
}

namespace {

std::string padded(long value, std::size_t width) { return fmt::format("{:0{}}", value, width); }

[[noreturn]] void refuseField(char letter, std::size_t count)
{
    Exception::raiseInvalidArgument(fmt::format("Unsupported date pattern field \"{}\"", std::string(count, letter)));
}

// The value of a numeric field that takes one or two digits: month, day, hour (24- and 12-hour), minute, second.
std::optional<long> numericField(char letter, const std::tm& parts)
{
    switch (letter) {
    case 'M':
        return parts.tm_mon + 1;
    case 'd':
        return parts.tm_mday;
    case 'H':
        return parts.tm_hour;
    case 'h':
        return parts.tm_hour % 12 == 0 ? 12 : parts.tm_hour % 12;
    case 'm':
        return parts.tm_min;
    case 's':
        return parts.tm_sec;
    }
    return std::nullopt;
}

// One run of a pattern letter, e.g. "yyyy" or "hh", as text for `parts`.
std::string field(char letter, std::size_t count, const std::tm& parts, double fraction)
{
    if (letter == 'y') {
        const long year = parts.tm_year + 1900L;
        return count == 2 ? padded(year % 100, 2) : padded(year, count);
    }
    if (const auto value = numericField(letter, parts); value && count <= 2)
        return padded(*value, count);
    if (letter == 'S' && count <= 9)
        return padded(static_cast<long>(std::floor(fraction * std::pow(10.0, static_cast<double>(count)))), count);
    if (letter == 'a' && count == 1)
        return parts.tm_hour < 12 ? "AM" : "PM";
    refuseField(letter, count);
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}

std::string formatDate(double secondsSince1970, std::string_view pattern)
{
    const auto parts = calendarTime(secondsSince1970, TimeZone::Local);
    if (!parts)
        Exception::raiseInvalidArgument(fmt::format("Date {} seconds since 1970 cannot be formatted", secondsSince1970));
    const double fraction = secondsSince1970 - std::floor(secondsSince1970);

    std::string out;
    std::size_t position = 0;
    while (position < pattern.size()) {
        const char c = pattern[position];
        if (isLetter(c)) {
            std::size_t end = position;
            while (end < pattern.size() && pattern[end] == c)
                ++end;
            out += field(c, end - position, *parts, fraction);
            position = end;
        } else {
            out += c;
            ++position;
        }
    }
    return out;
}

}
