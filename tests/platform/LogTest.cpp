#include "platform/Log.h"

#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <regex>
#include <sstream>
#include <thread>
#include <unistd.h>

using platform::format;
using platform::formatMessage;
using platform::Value;
using testsupport::LogCapture;
using testsupport::ScopedEnvironment;
using testsupport::TempDir;

namespace {

// Sends stderr to a file while it lives; text() gives what was written.
class StderrToFile {
public:
    StderrToFile() : m_path(m_folder / "stderr")
    {
        std::fflush(stderr);
        m_saved = dup(STDERR_FILENO);
        const int file = open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~StderrToFile() { restore(); }

    std::string text()
    {
        restore();
        return testsupport::readFile(m_path);
    }

private:
    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stderr);
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        m_saved = -1;
    }

    TempDir m_folder;
    std::filesystem::path m_path;
    int m_saved = -1;
};

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// yyyy-MM-dd HH:mm:ss.SSS <program>[pid:tid] text
const std::regex lineFormat(R"((\d{4})-(\d{2})-(\d{2}) (\d{2}):(\d{2}):(\d{2})\.(\d{3}) ([^\[]+)\[(\d+):(\d+)\] (.*))");

}

TEST(LogLine, StderrLineCarriesTimeProgramProcessThreadAndText)
{
    StderrToFile capture;
    platform::log("Json String %@", Value::dictionary({ { "a", "b" } }));
    const auto lines = linesOf(capture.text());
    ASSERT_EQ(lines.size(), 3u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(lines[0], match, lineFormat)) << lines[0];
    EXPECT_EQ(match[8], program_invocation_short_name);
    EXPECT_EQ(std::stol(match[9]), getpid());
    EXPECT_EQ(std::stol(match[10]), gettid());
    EXPECT_EQ(match[11], "Json String {");
    EXPECT_EQ(lines[1], "    a = b;");
    EXPECT_EQ(lines[2], "}");
}

TEST(LogLine, TimeIsTheLocalTimeOfWriting)
{
    const std::time_t before = std::time(nullptr);
    StderrToFile capture;
    platform::logText("now");
    const std::string text = capture.text();
    const std::time_t after = std::time(nullptr);
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text, match, lineFormat)) << text;
    std::tm parts {};
    parts.tm_year = std::stoi(match[1]) - 1900;
    parts.tm_mon = std::stoi(match[2]) - 1;
    parts.tm_mday = std::stoi(match[3]);
    parts.tm_hour = std::stoi(match[4]);
    parts.tm_min = std::stoi(match[5]);
    parts.tm_sec = std::stoi(match[6]);
    parts.tm_isdst = -1;
    const std::time_t written = std::mktime(&parts);
    EXPECT_GE(written, before);
    EXPECT_LE(written, after);
}

TEST(LogLine, ProgramNameCanBeSet)
{
    StderrToFile capture;
    platform::setProgramName("korbanhold-sync-service");
    platform::logText("named");
    platform::setProgramName(program_invocation_short_name);
    std::smatch match;
    const std::string text = capture.text();
    ASSERT_TRUE(std::regex_search(text, match, lineFormat)) << text;
    EXPECT_EQ(match[8], "korbanhold-sync-service");
}

TEST(LogLine, LinesFromManyThreadsStayWhole)
{
    StderrToFile capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i)
                platform::log("thread %d line %d of a message long enough to be cut if writes were split", t, i);
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto lines = linesOf(capture.text());
    ASSERT_EQ(lines.size(), 400u);
    for (const auto& line : lines)
        EXPECT_TRUE(std::regex_match(line, lineFormat)) << line;
}

TEST(LogSink, CapturedMessagesAreTheTextWithoutThePrefix)
{
    StderrToFile stderrText;
    {
        LogCapture log;
        platform::log("pass failed: %@", std::string("reason"));
        EXPECT_EQ(log.lines(), std::vector<std::string> { "pass failed: reason" });
    }
    EXPECT_EQ(stderrText.text(), "");
}

TEST(LogSink, RemovingTheSinkRestoresStderr)
{
    StderrToFile capture;
    auto previous = platform::setLogSink([](std::string_view) { });
    platform::setLogSink(std::move(previous));
    platform::logText("back on stderr");
    EXPECT_NE(capture.text().find("back on stderr"), std::string::npos);
}

TEST(FormatMessage, ObjectConversionPrintsTheDescription)
{
    EXPECT_EQ(format("record %@", Value::array({ "a b" })), "record (\n    \"a b\"\n)");
    EXPECT_EQ(format("%@", Value::null()), "<null>");
    EXPECT_EQ(format("%@ and %@", std::optional<Value>(), static_cast<const Value*>(nullptr)), "(null) and (null)");
}

TEST(FormatMessage, IntegerConversionsPrintDecimal)
{
    EXPECT_EQ(format("%d files, %lu bytes, %tu items, %lld", 3, 4096ul, std::size_t { 7 }, -9ll),
        "3 files, 4096 bytes, 7 items, -9");
}

TEST(FormatMessage, DoublePercentIsAPercentSign)
{
    EXPECT_EQ(formatMessage("100%% of %@", { "files" }), "100% of files");
    EXPECT_EQ(formatMessage("%%@", { "unused" }), "%@");
}

TEST(FormatMessage, MissingArgumentsPrintAsNull)
{
    EXPECT_EQ(formatMessage("%@ then %d", { "first" }), "first then (null)");
    EXPECT_EQ(formatMessage("%@", {}), "(null)");
}

TEST(FormatMessage, SurplusArgumentsAreIgnored)
{
    EXPECT_EQ(formatMessage("only %@", { "one", "two" }), "only one");
}

TEST(FormatMessage, APercentThatStartsNoConversionStays)
{
    EXPECT_EQ(formatMessage("a %y b %", { "x" }), "a %y b %");
}

TEST(FormatMessage, BooleansAndRealsPrintAsTheFrameworkDoes)
{
    EXPECT_EQ(format("%d %d %@", true, false, 0.5), "1 0 0.5");
}

namespace {

// A watched-files table of `count` records of the shape the engine stores.
Value tableOf(std::size_t count)
{
    platform::Array records;
    records.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(1000 + i);
        records.push_back(Value::dictionary({ { "FileIDKey", number }, { "BaseSystemFileIDKey", number },
            { "BaseSystemFilePathKey", "/home/ann/Korbanhold/folder/file " + number + ".txt" }, { "removeKey", "1" },
            { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", "1" }, { "fileSizeKey", "4" },
            { "computerIDKey", "2" }, { "filemodifiedDateKey", "2026-11-24 03:12:45" } }));
    }
    return Value::arrayOf(std::move(records));
}

std::string loggedLine(const char* pattern, const Value& argument)
{
    LogCapture log;
    platform::log(pattern, argument);
    return log.lines().at(0);
}

}

TEST(LogLineCap, ALineBelowTheCapIsExactlyTheFormattedText)
{
    ScopedEnvironment cap("KORBANHOLD_LOG_LINE_MAX", "4096");
    const Value table = tableOf(3);
    const std::string full = format("filde ID updayted  %@", table);
    ASSERT_LT(full.size(), 4096u);
    EXPECT_EQ(loggedLine("filde ID updayted  %@", table), full);
}

TEST(LogLineCap, ALineOverTheCapIsCutToTheCapAndEndsWithTheMarker)
{
    ScopedEnvironment cap("KORBANHOLD_LOG_LINE_MAX", "4096");
    const Value table = tableOf(200);
    const std::string full = format("filde ID updayted  %@", table);
    ASSERT_GT(full.size(), 4096u);
    const std::string line = loggedLine("filde ID updayted  %@", table);
    EXPECT_EQ(line.size(), 4096u);
    ASSERT_TRUE(line.ends_with(platform::logLineCutMarker));
    const std::size_t kept = line.size() - platform::logLineCutMarker.size();
    EXPECT_EQ(line.substr(0, kept), full.substr(0, kept));
}

TEST(LogLineCap, TheDefaultCapIs48KiB)
{
    ScopedEnvironment unset("KORBANHOLD_LOG_LINE_MAX", std::nullopt);
    EXPECT_EQ(platform::logLineMax(), 48u * 1024);
    EXPECT_EQ(loggedLine("Final List changed list %@", tableOf(1000)).size(), 48u * 1024);
}

TEST(LogLineCap, ZeroLogsTheWholeLine)
{
    ScopedEnvironment cap("KORBANHOLD_LOG_LINE_MAX", "0");
    const Value table = tableOf(1000);
    const std::string full = format("Final List changed list %@", table);
    ASSERT_GT(full.size(), 48u * 1024);
    EXPECT_EQ(loggedLine("Final List changed list %@", table), full);
}

TEST(LogLineCap, ACutNeverSplitsACharacter)
{
    ScopedEnvironment cap("KORBANHOLD_LOG_LINE_MAX", "100");
    // Each "é" is two bytes; the "x" before them puts an even cap inside one.
    std::string accents;
    for (int i = 0; i < 150; ++i)
        accents += "\xC3\xA9";
    LogCapture log;
    platform::log("x%@", accents);
    const std::string line = log.lines().at(0);
    EXPECT_LE(line.size(), 100u);
    ASSERT_TRUE(line.ends_with(platform::logLineCutMarker));
    const std::string kept = line.substr(0, line.size() - platform::logLineCutMarker.size());
    EXPECT_EQ(kept.size() % 2, 1u);
    EXPECT_EQ(kept, ("x" + accents).substr(0, kept.size()));
}

TEST(LogLineCap, ACappedLineCostsTheCapNotTheTable)
{
    ScopedEnvironment cap("KORBANHOLD_LOG_LINE_MAX", std::nullopt);
    const Value table = tableOf(20000);
    using Clock = std::chrono::steady_clock;
    auto timed = [](auto&& work, int runs = 3) {
        auto best = Clock::duration::max();
        for (int run = 0; run < runs; ++run) {
            const auto start = Clock::now();
            work();
            best = std::min(best, Clock::now() - start);
        }
        return best;
    };
    LogCapture log;
    const auto whole = timed([&] { (void)table.description(); }, 1);
    const auto capped = timed([&] { platform::log("filde ID updayted  %@", table); });
    const auto small = timed([&] { platform::log("filde ID updayted  %@", tableOf(400)); });
    EXPECT_EQ(log.lines().back().size(), 48u * 1024);
    // The capped line of 20,000 records costs what the line of a few hundred does (building that small table
    // included), far less than describing the whole table.
    EXPECT_LT(capped * 10, whole) << "capped " << std::chrono::duration<double>(capped).count() << " s, whole "
                                  << std::chrono::duration<double>(whole).count() << " s";
    EXPECT_LT(capped, small * 4 + std::chrono::milliseconds(5));
}
