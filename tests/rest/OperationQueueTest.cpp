#include "rest/OperationQueue.h"

#include "platform/Exception.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace rest;
using namespace std::chrono_literals;

namespace {

// Blocks the queue until open() is called.
class Gate {
public:
    void hold(OperationQueue& queue)
    {
        queue.async([future = m_future] { future.wait(); });
    }
    void open() { m_promise.set_value(); }

private:
    std::promise<void> m_promise;
    std::shared_future<void> m_future = m_promise.get_future().share();
};

bool idle(const OperationQueue& queue)
{
    return testsupport::eventually([&] { return queue.operations().empty(); });
}

}

TEST(OperationQueue, OperationsAreListedInSubmissionOrderUntilTheyHaveRun)
{
    auto queue = std::make_shared<OperationQueue>("test");
    Gate gate;
    gate.hold(*queue);
    std::vector<int> order;
    queue->async([&] { order.push_back(1); });
    queue->async([&] { order.push_back(2); });
    EXPECT_EQ(queue->operations().size(), 3u);
    gate.open();
    ASSERT_TRUE(idle(*queue));
    EXPECT_TRUE(queue->operations().empty());
    EXPECT_EQ(order, (std::vector<int> { 1, 2 }));
}

TEST(OperationQueue, ACancelledOperationThatHasNotStartedNeverRuns)
{
    auto queue = std::make_shared<OperationQueue>("test");
    Gate gate;
    gate.hold(*queue);
    std::atomic<bool> ran { false };
    queue->async([&] { ran = true; });
    queue->operations().back()->cancel();
    gate.open();
    ASSERT_TRUE(idle(*queue));
    EXPECT_FALSE(ran);
}

TEST(OperationQueue, CancellingTheRunningOperationMarksItAndLetsItFinish)
{
    auto queue = std::make_shared<OperationQueue>("test");
    std::shared_ptr<Operation> self;
    bool finished = false;
    queue->async([&] {
        self = queue->operations().front();
        self->cancel();
        finished = true;
    });
    ASSERT_TRUE(idle(*queue));
    queue->sync([] {});
    EXPECT_TRUE(finished);
    ASSERT_NE(self, nullptr);
    EXPECT_TRUE(self->isCancelled());
}

TEST(OperationQueue, AnOperationThatRaisesLeavesTheListAndTheQueueGoesOn)
{
    testsupport::LogCapture log;
    auto queue = std::make_shared<OperationQueue>("raising");
    queue->async([] { platform::Exception::raiseInvalidArgument("bad"); });
    std::atomic<bool> next { false };
    queue->async([&] { next = true; });
    ASSERT_TRUE(idle(*queue));
    EXPECT_TRUE(next);
    EXPECT_TRUE(queue->operations().empty());
}

TEST(OperationQueue, ItIsASerialQueueThatKnowsWhenItIsCurrent)
{
    auto queue = std::make_shared<OperationQueue>("current");
    EXPECT_FALSE(queue->isCurrent());
    bool current = false;
    queue->sync([&] { current = queue->isCurrent(); });
    EXPECT_TRUE(current);
    EXPECT_EQ(queue->label(), "current");
}

TEST(OperationQueue, AnOperationSubmittedForLaterIsListedOnceItsDelayHasPassed)
{
    auto queue = std::make_shared<OperationQueue>("later");
    std::promise<void> ran;
    queue->after(20ms, [&] { ran.set_value(); });
    EXPECT_TRUE(queue->operations().empty());
    EXPECT_EQ(ran.get_future().wait_for(5s), std::future_status::ready);
}
