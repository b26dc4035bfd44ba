// Every program answers --help and --version on stdout with status 0 and starts nothing: the service opens no
// socket, the local server listens on no port.

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <regex>

using testsupport::ProcessOptions;
using testsupport::ProcessResult;

namespace {

class HelpAndVersion : public ::testing::TestWithParam<std::string> {
protected:
    ProcessResult run(const std::string& argument) const
    {
        ProcessOptions options;
        // Where the programs would put their socket and database if they started.
        options.environment = {
            { "KORBANHOLD_RUNTIME_DIR", (runtime.path() / "run").string() },
            { "XDG_STATE_HOME", runtime.path().string() },
            { "LISTEN_FDS", std::nullopt },
            { "LISTEN_PID", std::nullopt },
        };
        options.timeout = std::chrono::seconds(30);
        return testsupport::runProcess(testsupport::builtProgram("tools/" + GetParam()), { argument }, options);
    }

    bool startedNothing() const { return std::filesystem::is_empty(runtime.path()); }

    testsupport::TempDir runtime;
};

}

TEST_P(HelpAndVersion, HelpPrintsTheUsageAndExitsWithoutStarting)
{
    const auto result = run("--help");
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_NE(result.standardOutput.find("Usage: " + GetParam()), std::string::npos) << result.standardOutput;
    EXPECT_NE(result.standardOutput.find("--version"), std::string::npos) << result.standardOutput;
    EXPECT_TRUE(startedNothing());
}

TEST_P(HelpAndVersion, VersionPrintsTheProjectVersionAndTheCommit)
{
    const auto result = run("--version");
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    const std::regex line(GetParam() + R"( \d+\.\d+\.\d+ \((commit [0-9a-f]{12}|commit unknown: built outside a git checkout)\)\n)");
    EXPECT_TRUE(std::regex_match(result.standardOutput, line)) << result.standardOutput;
    EXPECT_TRUE(startedNothing());
}

TEST_P(HelpAndVersion, AnUnknownOptionIsAUsageError)
{
    const auto result = run("--no-such-option");
    EXPECT_NE(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_NE(result.standardError, "");
    EXPECT_TRUE(startedNothing());
}

INSTANTIATE_TEST_SUITE_P(EveryProgram, HelpAndVersion,
    ::testing::Values("korbanhold", "korbanhold-sync-service", "korbanhold-watch", "korbanhold-devserver"),
    [](const auto& info) {
        std::string name = info.param;
        std::erase(name, '-');
        return name;
    });
