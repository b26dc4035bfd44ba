#include "platform/Log.h"

#include "platform/DateFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform {

namespace {

struct LogState {
    std::mutex mutex;
    // The name the program was started with, until setProgramName says otherwise.
    std::string programName = program_invocation_short_name;
    LogSink sink;
};

LogState& state()
{
    static LogState instance;
    return instance;
}

void writeToStderr(std::string_view text, const std::string& programName)
{
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    const std::string line = fmt::format("{} {}[{}:{}] {}\n", formatDate(now, "yyyy-MM-dd HH:mm:ss.SSS"), programName,
        getpid(), static_cast<long>(syscall(SYS_gettid)), text);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

// Length of a printf-style conversion that starts at pattern[position] (the '%'), or 0 when there is none.
std::size_t conversionLength(std::string_view pattern, std::size_t position)
{
    std::size_t end = position + 1;
    while (end < pattern.size() && std::string_view("-+ #0123456789.*").find(pattern[end]) != std::string_view::npos)
        ++end;
    while (end < pattern.size() && std::string_view("hlqLjzt").find(pattern[end]) != std::string_view::npos)
        ++end;
    if (end < pattern.size() && std::string_view("@dDiuUxXoOfFeEgGcCsSp").find(pattern[end]) != std::string_view::npos)
        return end + 1 - position;
    return 0;
}

}

void setProgramName(std::string name)
{
    std::lock_guard lock(state().mutex);
    state().programName = std::move(name);
}

LogSink setLogSink(LogSink sink)
{
    std::lock_guard lock(state().mutex);
    std::swap(state().sink, sink);
    return sink;
}

void logText(std::string_view text)
{
    std::lock_guard lock(state().mutex);
    if (state().sink)
        state().sink(text);
    else
        writeToStderr(text, state().programName);
}

std::size_t logLineMax()
{
    constexpr std::size_t defaultMax = 48 * 1024;
    const char* setting = std::getenv("KORBANHOLD_LOG_LINE_MAX");
    if (!setting || !*setting)
        return defaultMax;
    std::size_t max = 0;
    const std::string_view text(setting);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), max);
    if (error != std::errc() || end != text.data() + text.size())
        return defaultMax;
    // A cap must leave room for the marker.
    return max == 0 ? 0 : std::max(max, logLineCutMarker.size() + 1);
}

std::string capLogLine(std::string text, std::size_t max)
{
    if (max == 0 || text.size() <= max)
        return text;
    std::size_t keep = max - std::min(max, logLineCutMarker.size());
    // Never cut inside a UTF-8 sequence: back up over continuation bytes.
    while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0) == 0x80)
        --keep;
    text.resize(keep);
    text += logLineCutMarker;
    return text;
}

std::string formatMessage(std::string_view pattern, const std::vector<std::string>& arguments)
{
    std::string out;
    out.reserve(pattern.size());
    std::size_t next = 0;
    for (std::size_t position = 0; position < pattern.size(); ++position) {
        if (pattern[position] != '%') {
            out += pattern[position];
            continue;
        }
        if (position + 1 < pattern.size() && pattern[position + 1] == '%') {
            out += '%';
            ++position;
            continue;
        }
        const std::size_t length = conversionLength(pattern, position);
        if (length == 0) {
            out += '%';
            continue;
        }
        out += next < arguments.size() ? arguments[next] : std::string("(null)");
        ++next;
        position += length - 1;
    }
    return out;
}

}
