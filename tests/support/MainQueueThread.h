#pragma once

// The main queue run on a thread of its own, for tests whose code under test hands completions to the main queue
// while the test's own thread waits for them.

#include "platform/Queue.h"

#include <thread>

namespace testsupport {

class MainQueueThread {
public:
    MainQueueThread()
        : m_thread([] { platform::runMainQueue(); })
    {
    }
    ~MainQueueThread()
    {
        platform::stopMainQueue();
        m_thread.join();
    }
    MainQueueThread(const MainQueueThread&) = delete;
    MainQueueThread& operator=(const MainQueueThread&) = delete;

    // Waits until every task submitted to the main queue so far has run.
    static void drain()
    {
        platform::Queue::main()->sync([] {});
    }

private:
    std::thread m_thread;
};

}
