// Preference domains shared between real processes: whole-file replacement seen by readers in other processes.

#include "platform/UserDefaults.h"

#include "PreferenceTestSupport.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <regex>

using platform::UserDefaults;
using platform::Value;
using testsupport::Process;
using testsupport::ProcessOptions;
using testsupport::TempDir;

namespace {

constexpr const char* domainName = "Ulmaridon.FileWatcherXpcService";

std::filesystem::path stressProgram() { return testsupport::builtProgram("tests/helpers/domain_stress"); }

ProcessOptions inFolder(const TempDir& folder)
{
    ProcessOptions options;
    options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder.string() } };
    return options;
}

struct ReaderSummary {
    unsigned long reads = 0;
    unsigned long parses = 0;
    unsigned long versions = 0;
    std::string last;
};

ReaderSummary summaryOf(const std::string& output)
{
    std::smatch match;
    const std::regex pattern(R"(reads=(\d+) parses=(\d+) versions=(\d+) last=(\S+))");
    EXPECT_TRUE(std::regex_search(output, match, pattern)) << output;
    if (match.empty())
        return {};
    return { std::stoul(match[1]), std::stoul(match[2]), std::stoul(match[3]), match[4] };
}

}

TEST(UserDefaultsAcrossProcesses, ReadersSeeOnlyWholeVersionsWhileFourWritersReplaceTheDomainHundredsOfTimes)
{
    constexpr int writerCount = 4;
    constexpr int readerCount = 2;
    constexpr int writesPerWriter = 200;
    TempDir folder;
    const auto options = inFolder(folder);
    const auto stopFile = (folder / "stop").string();
    ASSERT_EQ(testsupport::runProcess(stressProgram(), { "write", domainName, "99", "1" }, options).exitCode, 0);

    std::vector<Process> readers;
    for (int i = 0; i < readerCount; ++i)
        readers.emplace_back(stressProgram(), std::vector<std::string> { "read", domainName, stopFile }, options);
    std::vector<Process> writers;
    for (int writer = 0; writer < writerCount; ++writer) {
        writers.emplace_back(stressProgram(),
            std::vector<std::string> { "write", domainName, std::to_string(writer), std::to_string(writesPerWriter) },
            options);
    }
    for (auto& writer : writers) {
        const auto result = writer.wait();
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
    }
    testsupport::writeFile(stopFile, "");

    for (auto& reader : readers) {
        const auto result = reader.wait();
        ASSERT_EQ(result.exitCode, 0) << result.standardError;
        const auto summary = summaryOf(result.standardOutput);
        // Every read parsed the file as it was on disk, and the reader saw the domain change while it read.
        EXPECT_EQ(summary.parses, summary.reads);
        EXPECT_GT(summary.versions, 2u) << result.standardOutput;
        // The last version read, after every writer had finished, is the last version of one of the writers.
        EXPECT_TRUE(std::regex_match(summary.last, std::regex("[0-3]:199"))) << summary.last;
    }

    // No temporary file is left behind.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string> { std::string(domainName) + ".json", "stop" }));
}

TEST(UserDefaultsAcrossProcesses, AReaderSeesAnotherProcesssWriteOnItsNextReadAndDoesNotParseAnUnchangedDomain)
{
    TempDir folder;
    UserDefaults reader("Ulmaridon.SyncFilesXpcService", folder.path());
    const auto file = folder / (std::string(domainName) + ".json");
    const auto options = inFolder(folder);
    EXPECT_EQ(reader.persistentDomainForName(domainName), std::nullopt);

    for (int writer = 0; writer < 3; ++writer) {
        const auto written
            = testsupport::runProcess(stressProgram(), { "write", domainName, std::to_string(writer), "1" }, options);
        ASSERT_EQ(written.exitCode, 0) << written.standardError;
        testsupport::waitUntilSettled(file);
        const auto parsesBefore = reader.parseCount();
        const auto read = reader.persistentDomainForName(domainName);
        ASSERT_TRUE(read);
        EXPECT_EQ(*read->find("writer"), Value::integer(writer));
        EXPECT_EQ(reader.parseCount(), parsesBefore + 1);
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(reader.persistentDomainForName(domainName), read);
        EXPECT_EQ(reader.parseCount(), parsesBefore + 1);
    }
}
