#pragma once

// OperationQueue: a serial queue whose tasks are operations that can be listed and cancelled while they wait or
// run, standing for the framework's operation queue that the legacy transport delivers its completion on.
//
// Each task submitted with async() becomes an Operation, listed by operations() from submission until it has
// run. Cancelling an operation that has not started keeps it from running; cancelling the running one only marks
// it (it runs to its end). The queue is a platform::Queue, so it can be an HTTP session's delegate queue.

#include "platform/Queue.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace rest {

class Operation {
public:
    void cancel() { m_cancelled = true; }
    bool isCancelled() const { return m_cancelled; }

private:
    std::atomic<bool> m_cancelled { false };
};

class OperationQueue : public platform::Queue, public std::enable_shared_from_this<OperationQueue> {
public:
    explicit OperationQueue(std::string label);

    void async(platform::Task task) override;
    // Adds the operation once `delay` has passed.
    void after(std::chrono::nanoseconds delay, platform::Task task) override;
    // Runs `task` on the queue and waits for it; it is not listed as an operation.
    void sync(platform::Task task) override;
    bool isCurrent() const override;
    const std::string& label() const override;

    // The operations submitted and not yet finished, in submission order (the running one first).
    std::vector<std::shared_ptr<Operation>> operations() const;

private:
    void finished(const Operation& operation);

    const std::shared_ptr<platform::Queue> m_serial;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<Operation>> m_operations;
};

}
