#include "support/NetworkNamespace.h"
#include "support/Process.h"

#include <gtest/gtest.h>

#include <net/if.h>

#include <iostream>
#include <string>
#include <vector>

namespace {

// A test that writes a line and then runs the rest of its body in a child in its own network namespace, where it
// passes at once.
constexpr const char* childTest = "NetworkNamespaceOutput.ATestThatWritesALineAndRunsInItsOwnNamespace";
constexpr const char* line = "a line from the test\n";

}

TEST(NetworkNamespaceOutput, ATestThatWritesALineAndRunsInItsOwnNamespace)
{
    std::cout << line;
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    // A fresh namespace has the loopback interface alone, and it is down.
    std::vector<std::string> interfaces;
    if (struct if_nameindex* names = ::if_nameindex()) {
        for (struct if_nameindex* name = names; name->if_index != 0; ++name)
            interfaces.emplace_back(name->if_name);
        ::if_freenameindex(names);
    }
    EXPECT_EQ(interfaces, std::vector<std::string> { "lo" });
    EXPECT_TRUE(::testsupport::insideFreshNetworkNamespace());
}

TEST(NetworkNamespaceOutput, WhatATestWroteBeforeItsChildStartedComesOutFirst)
{
    // Run as a program of its own with its output to a file, where the standard library holds output back until its
    // buffer fills: what the test wrote before its child started must still come out before anything the child
    // writes.
    const auto result = testsupport::runProcess("/proc/self/exe", { std::string("--gtest_filter=") + childTest });
    ASSERT_EQ(result.exitCode, 0) << result.standardOutput << result.standardError;
    const std::string& output = result.standardOutput;
    if (output.find("[  SKIPPED ]") != std::string::npos)
        GTEST_SKIP() << "not permitted to make a network namespace (needs root)";
    // The announcement of the test and its line, then the child's whole run, then the test's end.
    const std::string announcement = std::string("[ RUN      ] ") + childTest + "\n" + line;
    const auto announced = output.find(announcement);
    ASSERT_NE(announced, std::string::npos) << output;
    EXPECT_TRUE(output.substr(announced + announcement.size()).starts_with("Running main()")) << output;
}
