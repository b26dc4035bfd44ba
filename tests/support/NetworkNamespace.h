#pragma once

// Runs a test's body in a child process inside a fresh network namespace: no routes, the loopback link down.
//
//   TEST(Suite, Name)
//   {
//       RUN_IN_FRESH_NETWORK_NAMESPACE();
//       ... runs only in the child ...
//   }
//
// In the test process the macro starts this test binary again, filtered to this one test, in a new network
// namespace, and passes or fails with the child; it skips the test when the namespace cannot be made (it needs
// root or CAP_SYS_ADMIN). The child starts from exec, so it has no threads from the parent.

#include <gtest/gtest.h>

#include <string>

namespace testsupport {

struct ChildOutcome {
    enum class Kind { Passed, Failed, Skipped } kind;
    std::string message;
};

bool insideFreshNetworkNamespace();
ChildOutcome rerunInFreshNetworkNamespace();

// Runs a shell command (in the child's namespace, for example "ip route add ..."); true when it exits with 0.
bool runCommand(const std::string& command);

}

#define RUN_IN_FRESH_NETWORK_NAMESPACE()                                                                              \
    do {                                                                                                              \
        if (!::testsupport::insideFreshNetworkNamespace()) {                                                          \
            const auto outcome = ::testsupport::rerunInFreshNetworkNamespace();                                       \
            if (outcome.kind == ::testsupport::ChildOutcome::Kind::Skipped)                                           \
                GTEST_SKIP() << outcome.message;                                                                      \
            EXPECT_EQ(outcome.kind, ::testsupport::ChildOutcome::Kind::Passed) << outcome.message;                    \
            return;                                                                                                   \
        }                                                                                                             \
    } while (false)
