// When the file watcher raises the status and calls SyncFile, driven by a clock of the test's own.

#include "watch/RaisePolicy.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using watch::RaisePolicy;
using Action = RaisePolicy::Action;

class RaisePolicyTest : public testing::Test {
protected:
    RaisePolicyTest()
        : start(RaisePolicy::Clock::now())
        , policy(watch::RaiseTiming { 5s, 30s, 600s, 5s, 0ms }, start)
    {
    }

    RaisePolicy::Time at(std::chrono::milliseconds offset) const { return start + offset; }

    // Raises when the policy says so with the status not raised; true when it did.
    bool raiseIfDue(std::chrono::milliseconds offset)
    {
        if (policy.next(at(offset), false) != Action::raise)
            return false;
        policy.raised(at(offset));
        return true;
    }

    RaisePolicy::Time start;
    RaisePolicy policy;
};

TEST_F(RaisePolicyTest, NothingIsRaisedWhileNothingChanges)
{
    EXPECT_EQ(policy.next(at(1s), false), Action::none);
    EXPECT_EQ(policy.next(at(599s), false), Action::none);
    EXPECT_FALSE(policy.busy());
}

TEST_F(RaisePolicyTest, AChangeRaisesAtOnceWhenTheStatusIsNotRaised)
{
    policy.changed(at(1s));
    EXPECT_EQ(policy.next(at(1s), false), Action::raise);
}

TEST(RaisePolicy, TheRaiseWaitsBrieflySoThatOneOperationsEventsAreReadBeforeIt)
{
    const auto start = RaisePolicy::Clock::now();
    RaisePolicy policy(watch::RaiseTiming { 5s, 30s, 600s, 5s, 20ms }, start);
    policy.changed(start + 1s);
    EXPECT_TRUE(policy.raiseWaiting());
    policy.changed(start + 1005ms);
    EXPECT_EQ(policy.next(start + 1019ms, false), Action::none);
    EXPECT_EQ(policy.next(start + 1020ms, false), Action::raise);
}

TEST_F(RaisePolicyTest, ChangesWhileTheStatusIsRaisedRewriteNothing)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    for (auto offset = 1001ms; offset < 1500ms; offset += 10ms) {
        policy.changed(at(offset));
        EXPECT_EQ(policy.next(at(offset), true), Action::none);
    }
}

TEST_F(RaisePolicyTest, ChangesAfterTheRaiseRaiseAgainOnceThePassHasWrittenZero)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    policy.changed(at(2s));
    policy.writtenByOthers(at(3s), false);
    EXPECT_EQ(policy.next(at(3s), false), Action::raise);
}

TEST_F(RaisePolicyTest, ARaiseOverwrittenWithNoChangeAfterItIsConfirmedOnce)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    // The "0" may come from a report that ended after the raise, before any pass saw it.
    policy.writtenByOthers(at(1100ms), false);
    ASSERT_TRUE(raiseIfDue(1200ms));
    policy.writtenByOthers(at(3s), false);
    EXPECT_EQ(policy.next(at(3s), false), Action::none);
    EXPECT_FALSE(policy.busy());
}

TEST_F(RaisePolicyTest, ARaiseNoPassTakesUpCallsSyncFileOnce)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    EXPECT_EQ(policy.next(at(5900ms), true), Action::none);
    ASSERT_EQ(policy.next(at(6s), true), Action::callSyncFile);
    policy.syncFileCalled(at(6s), true);
    // SyncFile writes "1" itself; a pass that never ends with "0" gets no second call.
    policy.writtenByOthers(at(6100ms), true);
    EXPECT_EQ(policy.next(at(60s), true), Action::none);
    // Once a pass has ended, the service is known to poll; a later silence may call again.
    policy.writtenByOthers(at(61s), false);
    policy.changed(at(62s));
    ASSERT_TRUE(raiseIfDue(62s));
    EXPECT_EQ(policy.next(at(67s), true), Action::callSyncFile);
}

TEST_F(RaisePolicyTest, AStatusRaisedByOthersThatNoPassTakesUpCallsSyncFile)
{
    // A "1" left from before a restart of the service: changes cannot raise it, and nothing polls.
    policy.changed(at(1s));
    EXPECT_EQ(policy.next(at(1s), true), Action::none);
    EXPECT_EQ(policy.next(at(6s), true), Action::callSyncFile);
}

TEST_F(RaisePolicyTest, APassThatEndsInTimeCallsNothing)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    policy.writtenByOthers(at(3s), false);
    ASSERT_TRUE(raiseIfDue(3s)); // the confirming raise
    policy.writtenByOthers(at(5s), false);
    for (auto offset = 5s; offset < 30s; offset += 1s)
        EXPECT_NE(policy.next(at(offset), false), Action::callSyncFile);
}

TEST_F(RaisePolicyTest, AServiceThatCannotBeReachedIsCalledAgainLater)
{
    policy.changed(at(1s));
    ASSERT_TRUE(raiseIfDue(1s));
    ASSERT_EQ(policy.next(at(6s), true), Action::callSyncFile);
    policy.syncFileCalled(at(6s), false);
    EXPECT_EQ(policy.next(at(35s), true), Action::none);
    EXPECT_EQ(policy.next(at(36s), true), Action::callSyncFile);
}

TEST_F(RaisePolicyTest, TheStatusIsRaisedForSafetyEveryRescanInterval)
{
    EXPECT_EQ(policy.next(at(599s), false), Action::none);
    ASSERT_TRUE(raiseIfDue(600s));
    policy.writtenByOthers(at(601s), false);
    // A safety raise needs no confirmation.
    EXPECT_EQ(policy.next(at(601s), false), Action::none);
    EXPECT_TRUE(raiseIfDue(1200s));
}

TEST_F(RaisePolicyTest, WhilePollingTheStatusIsRaisedEveryPollInterval)
{
    policy.setPolling(true);
    EXPECT_EQ(policy.next(at(4s), false), Action::none);
    ASSERT_TRUE(raiseIfDue(5s));
    policy.writtenByOthers(at(6s), false);
    EXPECT_EQ(policy.next(at(9s), false), Action::none);
    EXPECT_TRUE(raiseIfDue(10s));
}

}
