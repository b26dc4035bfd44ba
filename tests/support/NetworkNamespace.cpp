#include "support/NetworkNamespace.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace testsupport {

namespace {

constexpr const char* childMarker = "KORBANHOLD_FRESH_NETWORK_NAMESPACE";
// The exit code of a child that could not make its namespace.
constexpr int cannotUnshare = 77;

}

bool insideFreshNetworkNamespace()
{
    return std::getenv(childMarker) != nullptr;
}

ChildOutcome rerunInFreshNetworkNamespace()
{
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    const std::string marker = std::string(childMarker) + "=1";

    // Everything the child needs is made before fork: between fork and exec it only makes system calls.
    std::vector<char*> arguments { const_cast<char*>("/proc/self/exe"), const_cast<char*>(filter.c_str()), nullptr };
    std::vector<char*> environment;
    for (char** variable = environ; *variable; ++variable)
        environment.push_back(*variable);
    environment.push_back(const_cast<char*>(marker.c_str()));
    environment.push_back(nullptr);

    // Output this process still holds in its buffers goes out now, ahead of the child's, which shares the same
    // standard output and error: otherwise the test's own lines would show up after the child's run of the same test.
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        return { ChildOutcome::Kind::Failed, "fork failed" };
    if (child == 0) {
        if (unshare(CLONE_NEWNET) != 0)
            _exit(cannotUnshare);
        execve(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    if (WIFEXITED(status) && WEXITSTATUS(status) == cannotUnshare)
        return { ChildOutcome::Kind::Skipped, "not permitted to make a network namespace (needs root)" };
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return { ChildOutcome::Kind::Passed, {} };
    return { ChildOutcome::Kind::Failed, "the test failed in its network namespace (status " + std::to_string(status)
            + "); its output is above" };
}

bool runCommand(const std::string& command)
{
    return std::system(command.c_str()) == 0;
}

}
