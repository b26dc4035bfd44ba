#pragma once

// System-log lines. Each message is one line on stderr:
//   yyyy-MM-dd HH:mm:ss.SSS <program>[pid:tid] text
// Under systemd the line lands in the journal. Tests replace the sink to capture the message texts, because some
// behaviour of the service is observable only in its log lines.
//
// Messages are written with the service's own format strings: every "%@" (and every printf-style conversion such
// as "%d", "%lu" or "%s") takes the next argument, printed with its description.
//
// A message is at most logLineMax() bytes long. A longer one is cut and ends with logLineCutMarker, and the
// description of a list or dictionary argument stops being produced once the cap is reached, so a line that prints
// a table of a million records costs the cap, not the table. The system log cuts long messages too, and the journal
// splits lines of more than 48 KiB.

#include "platform/Error.h"
#include "platform/Exception.h"
#include "platform/Value.h"

#include <concepts>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Receives the message text, without the time and program prefix.
using LogSink = std::function<void(std::string_view text)>;

void setProgramName(std::string name);
// Replaces the sink (an empty function restores the stderr sink); returns the previous one.
LogSink setLogSink(LogSink sink);

// Writes one message.
void logText(std::string_view text);

// A list argument whose elements are made one at a time, only as far as the line's description of it reaches: a
// large table is printed at the cost of the cap, without being made whole.
struct ListOnDemand {
    std::size_t count = 0;
    std::function<Value(std::size_t)> elementAt;
};

// What a "%@" prints for each kind of argument.
inline std::string describe(const Value& value) { return value.description(); }
inline std::string describe(const std::optional<Value>& value) { return value ? value->description() : "(null)"; }
inline std::string describe(const Value* value) { return value ? value->description() : "(null)"; }
inline std::string describe(const ListOnDemand& list)
{
    return Value::describeList(list.count, list.elementAt, std::numeric_limits<std::size_t>::max());
}
inline std::string describe(const Exception& exception) { return exception.reason(); }
inline std::string describe(const Error& error) { return error.description(); }
inline std::string describe(std::string_view text) { return std::string(text); }
inline std::string describe(const std::string& text) { return text; }
inline std::string describe(const char* text) { return text ? text : "(null)"; }
inline std::string describe(bool value) { return value ? "1" : "0"; }
template<std::integral Integer>
std::string describe(Integer value) { return std::to_string(value); }
inline std::string describe(double value) { return Number::fromDouble(value).stringValue(); }

// The longest message text, in bytes: $KORBANHOLD_LOG_LINE_MAX when it is a decimal number (0: no cap), else
// 48 KiB. Read on every message, so that a test or a caller can change it at run time.
std::size_t logLineMax();
inline constexpr std::string_view logLineCutMarker = " <...cut: log line over KORBANHOLD_LOG_LINE_MAX bytes>";
// `text` when it is at most `max` bytes long (or max is 0); else its first bytes, cut at a character boundary,
// followed by logLineCutMarker, max bytes in all.
std::string capLogLine(std::string text, std::size_t max);

// What a "%@" prints in a log line capped at `max` bytes: the argument's description, or its first bytes when it
// is longer (at least max + 1 of them, so that the cut shows).
inline std::string describeUpTo(const Value& value, std::size_t max) { return value.description(max + 1); }
inline std::string describeUpTo(const std::optional<Value>& value, std::size_t max)
{
    return value ? value->description(max + 1) : "(null)";
}
inline std::string describeUpTo(const Value* value, std::size_t max) { return value ? value->description(max + 1) : "(null)"; }
inline std::string describeUpTo(const ListOnDemand& list, std::size_t max)
{
    return Value::describeList(list.count, list.elementAt, max + 1);
}
inline std::string describeUpTo(std::string_view text, std::size_t max) { return std::string(text.substr(0, max + 1)); }
inline std::string describeUpTo(const std::string& text, std::size_t max) { return text.substr(0, max + 1); }
template<typename Argument>
std::string describeUpTo(const Argument& argument, std::size_t) { return describe(argument); }

// Replaces the conversions of `pattern` by `arguments` in order; "%%" is a percent sign. Missing arguments print
// as "(null)", surplus ones are ignored.
std::string formatMessage(std::string_view pattern, const std::vector<std::string>& arguments);

template<typename... Arguments>
std::string format(std::string_view pattern, const Arguments&... arguments)
{
    return formatMessage(pattern, { describe(arguments)... });
}

template<typename... Arguments>
void log(std::string_view pattern, const Arguments&... arguments)
{
    const std::size_t max = logLineMax();
    if (max == 0)
        logText(format(pattern, arguments...));
    else
        logText(capLogLine(formatMessage(pattern, { describeUpTo(arguments, max)... }), max));
}

}
