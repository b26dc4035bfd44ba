#pragma once

// Child processes for tests: start a program with arguments, environment changes and optional standard input,
// capture its standard output and standard error, and wait for it with a time limit.
//
// Output goes to anonymous memory files rather than pipes, so a child never blocks on a full pipe however much it
// writes, and several children can run at once without a reader thread each. A child still running when its
// Process object goes is killed and reaped.
//
//   testsupport::ProcessOptions options;
//   options.environment = { { "KORBANHOLD_PREFERENCES_DIR", folder } };
//   auto result = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "defaults", "domains" },
//       options);
//   EXPECT_EQ(result.exitCode, 0) << result.standardError;

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace testsupport {

struct ProcessOptions {
    // Changes to this process's environment for the child: a value sets the variable, absent removes it.
    std::vector<std::pair<std::string, std::optional<std::string>>> environment;
    // What the child reads on standard input; absent gives it /dev/null.
    std::optional<std::string> standardInput;
    // The child's working folder; empty keeps this process's.
    std::filesystem::path workingDirectory;
    // How long wait() lets the child run before killing it.
    std::chrono::milliseconds timeout { std::chrono::seconds(60) };
};

struct ProcessResult {
    // The exit status, or -1 when the child ended by a signal.
    int exitCode = -1;
    // The signal that ended the child, or 0.
    int signal = 0;
    // True when the child was killed because it ran past its time limit.
    bool timedOut = false;
    std::string standardOutput;
    std::string standardError;
};

class Process {
public:
    // Starts `program` (a path; no search in PATH) with `arguments` (not counting the program itself). Raises
    // std::system_error when it cannot be started.
    Process(const std::filesystem::path& program, const std::vector<std::string>& arguments,
        const ProcessOptions& options = {});
    ~Process();
    Process(Process&& other) noexcept;
    Process& operator=(Process&&) = delete;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return m_pid; }
    // While the child runs: what it has written on standard output so far, and whether it has ended.
    std::string standardOutputSoFar() const;
    bool hasEnded() const;
    // Waits until the child ends (or its time limit has passed, then kills it) and collects its output. Call once.
    ProcessResult wait();

private:
    pid_t m_pid = -1;
    int m_pidDescriptor = -1;
    int m_output = -1;
    int m_error = -1;
    std::chrono::steady_clock::time_point m_deadline;
};

// Starts a program and waits for it.
ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ProcessOptions& options = {});

// A program of this build: $KORBANHOLD_BINARY_DIR/`relativePath` (ctest sets the variable). When it is unset, as
// when a test executable is run by hand, the build folder is taken to be the parent of the folder that holds the
// running test executable (build/<preset>/tests/test_x -> build/<preset>).
std::filesystem::path builtProgram(const std::string& relativePath);

}
