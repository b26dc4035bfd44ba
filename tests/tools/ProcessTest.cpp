// The child-process helper that the tests of programs stand on (tests/support/Process.h).

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>

using testsupport::Process;
using testsupport::ProcessOptions;
using testsupport::runProcess;

namespace {

const std::filesystem::path shell = "/bin/sh";

ProcessOptions withEnvironment(std::vector<std::pair<std::string, std::optional<std::string>>> environment)
{
    ProcessOptions options;
    options.environment = std::move(environment);
    return options;
}

}

TEST(ChildProcess, CapturesOutputErrorAndExitStatus)
{
    const auto result = runProcess(shell, { "-c", "echo out; echo err >&2; exit 3" });
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.standardOutput, "out\n");
    EXPECT_EQ(result.standardError, "err\n");
}

TEST(ChildProcess, FeedsStandardInputOrNothing)
{
    ProcessOptions options;
    options.standardInput = "line one\nline two\n";
    EXPECT_EQ(runProcess(shell, { "-c", "wc -l" }, options).standardOutput, "2\n");
    EXPECT_EQ(runProcess(shell, { "-c", "wc -c" }).standardOutput, "0\n");
}

TEST(ChildProcess, SetsAndRemovesEnvironmentVariables)
{
    ::setenv("KORBANHOLD_PROCESS_TEST_INHERITED", "kept", 1);
    ::setenv("KORBANHOLD_PROCESS_TEST_REMOVED", "there", 1);
    const auto result = runProcess(shell,
        { "-c", "echo \"$KORBANHOLD_PROCESS_TEST_INHERITED,${KORBANHOLD_PROCESS_TEST_REMOVED-unset},$NEW\"" },
        withEnvironment({ { "KORBANHOLD_PROCESS_TEST_REMOVED", std::nullopt }, { "NEW", "set" } }));
    EXPECT_EQ(result.standardOutput, "kept,unset,set\n");
}

TEST(ChildProcess, RunsInTheWorkingFolderGiven)
{
    testsupport::TempDir folder;
    ProcessOptions options;
    options.workingDirectory = folder.path();
    EXPECT_EQ(runProcess(shell, { "-c", "pwd -P" }, options).standardOutput,
        std::filesystem::canonical(folder.path()).string() + "\n");
}

TEST(ChildProcess, LargeOutputNeverBlocksTheChild)
{
    const auto result = runProcess(shell, { "-c", "head -c 3000000 /dev/zero" });
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput.size(), 3000000u);
}

TEST(ChildProcess, AChildPastItsTimeLimitIsKilled)
{
    ProcessOptions options;
    options.timeout = std::chrono::milliseconds(100);
    const auto result = runProcess(shell, { "-c", "echo started; exec sleep 30" }, options);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.exitCode, -1);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.standardOutput, "started\n");
}

TEST(ChildProcess, SeveralChildrenRunAtOnce)
{
    std::vector<Process> children;
    for (int i = 0; i < 4; ++i)
        children.emplace_back(shell, std::vector<std::string> { "-c", "sleep 0.2; echo " + std::to_string(i) });
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(children[static_cast<std::size_t>(i)].wait().standardOutput, std::to_string(i) + "\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(ChildProcess, AProgramThatCannotBeStartedRaises)
{
    EXPECT_THROW(Process("/nonexistent/program", {}), std::system_error);
}
