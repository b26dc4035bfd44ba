#pragma once

// Waits for something another thread or process brings about: polls `condition` until it holds or `timeout` has
// passed, and says which. Tests assert on the answer, so a condition that never comes fails instead of hanging.
// A condition that is costly to test (it reads files or asks another process) can be polled less often. The default
// limit is generous because the suite runs on busy machines: a condition that holds costs no more for it.

#include <chrono>
#include <thread>

namespace testsupport {

template<typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(30),
    std::chrono::milliseconds interval = std::chrono::milliseconds(2))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(interval);
    }
    return true;
}

}
