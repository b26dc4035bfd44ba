#pragma once

// Dispatch queues: where the service's work runs.
//
// Guarantees:
// - A serial queue runs its tasks one at a time, in the order they were submitted (FIFO); two tasks of one serial
//   queue never run at the same time, and each task sees everything the previous one wrote.
// - The main queue is a serial queue run by the thread that calls runMainQueue() (the program's main thread).
// - The global background queue is concurrent: a pool of at least two threads; tasks start in submission order but
//   may run at the same time.
// - after(delay, task) submits the task to the queue once `delay` has passed on the queues' clock. Under the test
//   clock (see TestClock) delays pass only when a test advances virtual time, so loops that reschedule themselves
//   every two seconds can be driven for many iterations without sleeping.
//
// IMPLEMENTATION NOTE: this header is the agreed surface; Queue.cpp supplies it on Asio.

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace platform {

using Task = std::function<void()>;

class Queue {
public:
    virtual ~Queue() = default;

    // Submits `task` and returns at once.
    virtual void async(Task task) = 0;
    // Submits `task` after `delay` on the queues' clock.
    virtual void after(std::chrono::nanoseconds delay, Task task) = 0;
    // Runs `task` on the queue and waits until it has run. Must not be called from a task of the same serial queue.
    virtual void sync(Task task) = 0;
    // True when the calling thread is running a task of this queue.
    virtual bool isCurrent() const = 0;
    virtual const std::string& label() const = 0;

    static std::shared_ptr<Queue> main();
    static std::shared_ptr<Queue> globalBackground();
    static std::shared_ptr<Queue> makeSerial(std::string label);
};

// Runs the main queue's tasks on the calling thread until stopMainQueue() is called (from any thread).
void runMainQueue();
void stopMainQueue();

// Virtual time for tests. While a TestClock object lives, `after` tasks of every queue wait for advance() instead
// of real time. advance(d) moves virtual time forward by d and submits, in order of their due time (and of
// submission for equal times), every task that has come due; tasks submitted with `after` by those tasks are due
// relative to the virtual time at which they were submitted.
class TestClock {
public:
    TestClock();
    ~TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    void advance(std::chrono::nanoseconds delta);
    std::chrono::nanoseconds now() const;
    // The number of `after` tasks waiting for virtual time.
    std::size_t pendingCount() const;
};

}
