#pragma once

// System-log lines. Each message is one line on stderr:
//   yyyy-MM-dd HH:mm:ss.SSS <program>[pid:tid] text
// Under systemd the line lands in the journal. Tests replace the sink to capture the message texts, because some
// behaviour of the service is observable only in its log lines.
//
// Messages are written with the service's own format strings: every "%@" (and every printf-style conversion such
// as "%d", "%lu" or "%s") takes the next argument, printed with its description.

#include "platform/Error.h"
#include "platform/Exception.h"
#include "platform/Value.h"

#include <concepts>
#include <functional>
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

// What a "%@" prints for each kind of argument.
inline std::string describe(const Value& value) { return value.description(); }
inline std::string describe(const std::optional<Value>& value) { return value ? value->description() : "(null)"; }
inline std::string describe(const Value* value) { return value ? value->description() : "(null)"; }
inline std::string describe(const Exception& exception) { return exception.reason(); }
inline std::string describe(const Error& error) { return error.description(); }
inline std::string describe(std::string_view text) { return std::string(text); }
inline std::string describe(const std::string& text) { return text; }
inline std::string describe(const char* text) { return text ? text : "(null)"; }
inline std::string describe(bool value) { return value ? "1" : "0"; }
template<std::integral Integer>
std::string describe(Integer value) { return std::to_string(value); }
inline std::string describe(double value) { return Number::fromDouble(value).stringValue(); }

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
    logText(format(pattern, arguments...));
}

}
