#include "platform/Queue.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <signal.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

using platform::Queue;
using platform::TestClock;
using namespace std::chrono_literals;

namespace {

// Counts events and lets a test wait, with a time limit, until enough have happened.
class Counter {
public:
    void add()
    {
        std::lock_guard lock(m_mutex);
        ++m_count;
        m_changed.notify_all();
    }

    // True when the count reached `count` within `limit`.
    bool waitFor(int count, std::chrono::milliseconds limit = 10s)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_count >= count; });
    }

    int count() const
    {
        std::lock_guard lock(m_mutex);
        return m_count;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_count = 0;
};

}

TEST(Queue, SerialQueueRunsTasksOfEachProducerInSubmissionOrderAndNeverTwoAtOnce)
{
    constexpr int producers = 8;
    constexpr int tasksEach = 2000;
    auto queue = Queue::makeSerial("test.fifo");
    std::vector<std::vector<int>> seen(producers); // only touched by the queue's tasks
    std::atomic<int> running = 0;
    std::atomic<int> overlaps = 0;
    Counter finished;

    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int i = 0; i < tasksEach; ++i) {
                queue->async([&, producer, i] {
                    if (running.fetch_add(1) != 0)
                        ++overlaps;
                    seen[producer].push_back(i);
                    running.fetch_sub(1);
                    finished.add();
                });
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(finished.waitFor(producers * tasksEach));

    EXPECT_EQ(overlaps.load(), 0);
    queue->sync([&] {
        for (int producer = 0; producer < producers; ++producer) {
            ASSERT_EQ(seen[producer].size(), std::size_t(tasksEach));
            for (int i = 0; i < tasksEach; ++i)
                ASSERT_EQ(seen[producer][i], i) << "producer " << producer;
        }
    });
}

TEST(Queue, SerialQueueTasksSubmittedFromOneThreadRunInThatOrderWhileOtherQueuesAreBusy)
{
    auto queue = Queue::makeSerial("test.order");
    std::vector<int> order; // plain data: each task must see the previous task's write
    for (int i = 0; i < 500; ++i) {
        Queue::globalBackground()->async([] { std::this_thread::sleep_for(10us); });
        queue->async([&order, i] { order.push_back(i); });
    }
    queue->sync([] { });
    ASSERT_EQ(order.size(), 500u);
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(order[i], i);
}

TEST(Queue, GlobalQueueRunsAtLeastTwoTasksAtTheSameTime)
{
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    Counter together;
    for (int i = 0; i < 2; ++i) {
        Queue::globalBackground()->async([&] {
            bool bothArrived = false;
            {
                std::unique_lock lock(mutex);
                ++arrived;
                changed.notify_all();
                // Each task waits inside the queue until the other one has started too.
                bothArrived = changed.wait_for(lock, 10s, [&] { return arrived == 2; });
            }
            // Counted only once the task is done with the test's mutex, which goes when the test has both counts.
            if (bothArrived)
                together.add();
        });
    }
    EXPECT_TRUE(together.waitFor(2));
}

TEST(Queue, SyncWaitsUntilTheTaskHasRun)
{
    auto queue = Queue::makeSerial("test.sync");
    bool ran = false;
    queue->async([] { std::this_thread::sleep_for(20ms); });
    queue->sync([&] {
        std::this_thread::sleep_for(20ms);
        ran = true;
    });
    EXPECT_TRUE(ran);

    bool ranOnGlobal = false;
    Queue::globalBackground()->sync([&] { ranOnGlobal = true; });
    EXPECT_TRUE(ranOnGlobal);
}

TEST(Queue, SyncHandsTheTasksExceptionToTheCaller)
{
    auto queue = Queue::makeSerial("test.sync-throws");
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
    EXPECT_THROW(Queue::globalBackground()->sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
    bool ranAfter = false;
    queue->sync([&] { ranAfter = true; });
    EXPECT_TRUE(ranAfter);
}

TEST(Queue, SyncOnTheSerialQueueThatIsRunningTheCallerThrowsInsteadOfWaitingForever)
{
    auto queue = Queue::makeSerial("test.reentrant");
    bool threw = false;
    queue->sync([&] {
        try {
            queue->sync([] { });
        } catch (const std::logic_error&) {
            threw = true;
        }
    });
    EXPECT_TRUE(threw);
}

TEST(Queue, CurrentIsTheQueueWhoseTaskTheThreadRunsAndNothingElsewhere)
{
    auto queue = Queue::makeSerial("test.current");
    EXPECT_EQ(Queue::current(), nullptr);
    std::shared_ptr<Queue> inTask, inGlobalTask;
    queue->sync([&] { inTask = Queue::current(); });
    Queue::globalBackground()->sync([&] { inGlobalTask = Queue::current(); });
    EXPECT_EQ(inTask, queue);
    EXPECT_EQ(inGlobalTask, Queue::globalBackground());
}

TEST(Queue, IsCurrentOnlyInsideATaskOfThatQueue)
{
    auto queue = Queue::makeSerial("test.current");
    auto other = Queue::makeSerial("test.other");
    EXPECT_FALSE(queue->isCurrent());
    bool inOwnTask = false;
    bool otherInOwnTask = true;
    bool globalInOwnTask = true;
    bool nestedSeesOther = false;
    bool restoredAfterNested = false;
    queue->sync([&] {
        inOwnTask = queue->isCurrent();
        otherInOwnTask = other->isCurrent();
        globalInOwnTask = Queue::globalBackground()->isCurrent();
        other->sync([&] { nestedSeesOther = other->isCurrent() && !queue->isCurrent(); });
        restoredAfterNested = queue->isCurrent();
    });
    EXPECT_TRUE(inOwnTask);
    EXPECT_FALSE(otherInOwnTask);
    EXPECT_FALSE(globalInOwnTask);
    EXPECT_TRUE(nestedSeesOther);
    EXPECT_TRUE(restoredAfterNested);

    Counter done;
    bool globalCurrent = false;
    Queue::globalBackground()->async([&] {
        globalCurrent = Queue::globalBackground()->isCurrent();
        done.add();
    });
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_TRUE(globalCurrent);
}

TEST(Queue, LabelIsTheOneGivenAtCreation)
{
    EXPECT_EQ(Queue::makeSerial("com.example.labelled")->label(), "com.example.labelled");
    EXPECT_EQ(Queue::main()->label(), "main");
    EXPECT_EQ(Queue::globalBackground()->label(), "global.background");
    EXPECT_EQ(Queue::main(), Queue::main());
    EXPECT_EQ(Queue::globalBackground(), Queue::globalBackground());
}

TEST(Queue, MainQueueRunsItsTasksOnTheThreadThatCallsRunMainQueue)
{
    const auto testThread = std::this_thread::get_id();
    std::vector<std::thread::id> ranOn;
    bool mainIsCurrent = false;
    // Completions submitted from a background task and from another thread both land on the main thread.
    Queue::globalBackground()->async([&] {
        Queue::main()->async([&] { ranOn.push_back(std::this_thread::get_id()); });
        std::thread([&] {
            Queue::main()->async([&] {
                ranOn.push_back(std::this_thread::get_id());
                mainIsCurrent = Queue::main()->isCurrent();
                platform::stopMainQueue();
            });
        }).join();
    });
    platform::runMainQueue();
    ASSERT_EQ(ranOn.size(), 2u);
    EXPECT_EQ(ranOn[0], testThread);
    EXPECT_EQ(ranOn[1], testThread);
    EXPECT_TRUE(mainIsCurrent);
}

TEST(Queue, MainQueueCanBeRunByAnotherThreadAndStoppedFromOutside)
{
    std::thread::id runner;
    std::thread mainThread([&] {
        runner = std::this_thread::get_id();
        platform::runMainQueue();
    });
    std::thread::id ranOn;
    Queue::main()->sync([&] { ranOn = std::this_thread::get_id(); });
    platform::stopMainQueue();
    mainThread.join();
    EXPECT_EQ(ranOn, runner);
}

TEST(Queue, StopRequestedBeforeTheMainQueueRunsEndsTheNextRunAtOnce)
{
    platform::stopMainQueue();
    platform::runMainQueue(); // returns at once instead of blocking the test
    bool ran = false;
    Queue::main()->async([&] {
        ran = true;
        platform::stopMainQueue();
    });
    platform::runMainQueue();
    EXPECT_TRUE(ran);
}

TEST(Queue, ATaskThatThrowsIsLoggedAndTheQueueGoesOn)
{
    testsupport::LogCapture logs;
    auto queue = Queue::makeSerial("test.throws");
    queue->async([] { throw std::runtime_error("task failed"); });
    bool next = false;
    queue->sync([&] { next = true; });
    EXPECT_TRUE(next);
    EXPECT_TRUE(logs.contains("Uncaught exception in a task of queue test.throws: task failed"));
}

TEST(Queue, ManyPoolTasksWaitingInSyncDoNotStarveThePool)
{
    // More tasks than pool threads each wait for a serial queue; with a fixed pool every thread would be waiting and
    // the serial tasks they wait for could never start.
    constexpr int waiters = 16;
    std::vector<std::shared_ptr<Queue>> queues;
    for (int i = 0; i < waiters; ++i)
        queues.push_back(Queue::makeSerial("test.waited-for"));
    Counter finished;
    for (int i = 0; i < waiters; ++i) {
        Queue::globalBackground()->async([&, i] {
            queues[i]->sync([] { std::this_thread::sleep_for(1ms); });
            finished.add();
        });
    }
    EXPECT_TRUE(finished.waitFor(waiters));
}

TEST(Queue, AfterRunsTheTaskOnceTheRealDelayHasPassed)
{
    auto queue = Queue::makeSerial("test.after");
    const auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration waited {};
    bool onQueue = false;
    Counter done;
    queue->after(30ms, [&] {
        waited = std::chrono::steady_clock::now() - start;
        onQueue = queue->isCurrent();
        done.add();
    });
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_GE(waited, 30ms);
    EXPECT_TRUE(onQueue);
}

TEST(TestClock, AfterTasksWaitForVirtualTimeAndRunInOrderOfDueTimeThenSubmission)
{
    TestClock clock;
    auto queue = Queue::makeSerial("test.virtual");
    std::vector<std::string> order;
    auto record = [&](std::string name) { return [&order, name] { order.push_back(name); }; };
    queue->after(3s, record("3s"));
    queue->after(1s, record("1s first"));
    Queue::globalBackground()->after(2s, record("2s global"));
    queue->after(1s, record("1s second"));
    queue->after(0s, record("0s"));
    EXPECT_EQ(clock.pendingCount(), 5u);

    std::this_thread::sleep_for(20ms);
    queue->sync([] { });
    EXPECT_TRUE(order.empty()) << "nothing runs before virtual time moves";

    clock.advance(1s);
    EXPECT_EQ(order, (std::vector<std::string> { "0s", "1s first", "1s second" }));
    EXPECT_EQ(clock.now(), 1s);
    EXPECT_EQ(clock.pendingCount(), 2u);

    clock.advance(5s);
    EXPECT_EQ(order, (std::vector<std::string> { "0s", "1s first", "1s second", "2s global", "3s" }));
    EXPECT_EQ(clock.now(), 6s);
    EXPECT_EQ(clock.pendingCount(), 0u);
}

TEST(TestClock, ATaskReschedulingItselfEveryTwoSecondsRunsOncePerTwoSecondsAdvanced)
{
    TestClock clock;
    constexpr int iterations = 500;
    std::atomic<int> runs = 0;
    std::vector<std::chrono::nanoseconds> times;
    std::function<void()> loop = [&] {
        ++runs;
        times.push_back(clock.now());
        Queue::globalBackground()->after(2s, loop);
    };
    Queue::globalBackground()->after(2s, loop);

    const auto start = std::chrono::steady_clock::now();
    clock.advance(iterations * 2s);
    const auto elapsed = std::chrono::steady_clock::now() - start;

    EXPECT_EQ(runs.load(), iterations);
    ASSERT_EQ(times.size(), std::size_t(iterations));
    for (int i = 0; i < iterations; ++i)
        EXPECT_EQ(times[i], (i + 1) * 2s);
    EXPECT_EQ(clock.pendingCount(), 1u);
    EXPECT_LT(elapsed, 10s) << "virtual time must not sleep for real";

    clock.advance(1s);
    EXPECT_EQ(runs.load(), iterations);
}

TEST(TestClock, TasksStillWaitingWhenTheClockGoesAreDropped)
{
    auto held = std::make_shared<int>(0);
    {
        TestClock clock;
        Queue::globalBackground()->after(1s, [held] { ++*held; });
        EXPECT_EQ(held.use_count(), 2);
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(*held, 0);
}

TEST(TestClock, OnlyOneClockMayLiveAtATime)
{
    TestClock clock;
    EXPECT_THROW(TestClock second, std::logic_error);
}

TEST(Queue, ProcessExitsCleanlyWhileTasksRunAndTimersArePending)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            auto serial = Queue::makeSerial("test.exit");
            for (int i = 0; i < 100; ++i) {
                Queue::globalBackground()->async([] { std::this_thread::sleep_for(1ms); });
                serial->async([] { std::this_thread::sleep_for(1ms); });
                serial->after(std::chrono::milliseconds(i), [] { platform::log("timer fired"); });
            }
            std::this_thread::sleep_for(5ms);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Queue, ProcessExitCalledFromAPoolTaskEndsCleanly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Queue::globalBackground()->async([] { std::exit(3); });
            std::this_thread::sleep_for(10s);
        },
        testing::ExitedWithCode(3), "");
}

TEST(Queue, ATerminationSignalStopsTheMainQueueSoTheProgramEndsNormally)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            platform::stopMainQueueOnSignals({ SIGTERM, SIGINT });
            Queue::globalBackground()->after(20ms, [] { ::kill(::getpid(), SIGTERM); });
            platform::runMainQueue();
            // Reached only because the signal stopped the main queue instead of killing the process.
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
}
