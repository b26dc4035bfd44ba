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
// - A task that lets an exception escape from async() or after() is logged with its queue's label and dropped; the
//   queue goes on with its next task. sync() hands the exception to its caller instead.
// - sync() on the global queue runs the task on the calling thread (as a concurrent queue may), so it never waits
//   for a free pool thread. sync() on a serial queue (or the main queue) from one of that queue's own tasks would
//   wait for itself forever and throws std::logic_error instead.
// - A pool thread that waits in sync() does not starve the pool: while threads wait there, the pool starts more
//   threads (up to 64) so that at least its base number (the number of cores, at least 2) stay free to run the tasks
//   being waited for. Tasks should wait for other queues only through sync().
// - At process exit the pool stops taking tasks: the task each thread is running finishes (waited for up to two
//   seconds), queued tasks and pending timers are dropped, and the threads are joined, so no task runs while the
//   program's static objects are destroyed. The queues themselves are never destroyed, so they stay usable (as
//   no-ops) from static destructors.
//
// Implementation (Queue.cpp): Asio. The global queue posts to an io_context run by the pool's threads, a serial queue
// is a strand on that io_context, the main queue a second io_context run by runMainQueue(), and `after` a
// steady_timer on the pool that submits the task when it expires.

#include <chrono>
#include <functional>
#include <initializer_list>
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
    // The queue whose task the calling thread is running; nothing on a thread that runs no queue's task.
    static std::shared_ptr<Queue> current();
};

// Runs the main queue's tasks on the calling thread until stopMainQueue() is called (from any thread).
void runMainQueue();
void stopMainQueue();
// From now on each of `signals` (such as SIGTERM and SIGINT) stops the main queue as stopMainQueue() does, instead
// of ending the process where it stands: runMainQueue() returns, the program leaves main() and exits normally.
// Meant to be called once, at start-up.
void stopMainQueueOnSignals(std::initializer_list<int> signals);

// Virtual time for tests. While a TestClock object lives, `after` tasks of every queue wait for advance() instead
// of real time. advance(d) moves virtual time forward by d and submits, in order of their due time (and of
// submission for equal times), every task that has come due; tasks submitted with `after` by those tasks are due
// relative to the virtual time at which they were submitted.
//
// advance() moves time from one due task to the next and waits until each has run before it goes on, so a task that
// reschedules itself every 2 s runs N times in one advance(N * 2 s). It does not wait for a task of the main queue
// or of the queue the caller is running (the caller may be the thread that has to run it); those are only submitted.
// Virtual time starts at zero. Only one TestClock may live at a time; tasks still waiting when it goes are dropped.
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
