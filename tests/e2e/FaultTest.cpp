// The loop survives what goes wrong between the service and the server: a report that fails stores nothing, so the
// next raised pass reports the same differences again and the server converges; a reply that the service counts as
// accepted stores the table even when the server did nothing; an exception in a pass reaches the server's error log
// and the polling goes on.

#include "SyncedFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using e2etest::SyncedFolder;
using platform::Value;

// The described failure handling: no retry (the next raised pass reports again), and any JSON reply an answer. The
// default mode's retries and reply checks are tested in SafeguardsEndToEndTest.cpp.
class ReportFaults : public SyncedFolder {
protected:
    ReportFaults() { m_folders.setStrictMode(true); }

    // A step whose report meets `fault`: the pass ends, the faulted request reaches the server, and the service
    // logs `transportLine` once it has the outcome.
    testing::AssertionResult stepMeetingFault(const std::string& kind, const std::string& transportLine)
    {
        m_records->addFault(Value::dictionary({ { "kind", kind }, { "path", e2etest::batchReportPath } }));
        const auto lines = m_folders.logCount(transportLine);
        if (auto ended = passStep(); !ended)
            return ended;
        if (!e2etest::eventuallyWithinServiceTime([&] { return m_folders.logCount(transportLine) > lines; }))
            return testing::AssertionFailure() << "no \"" << transportLine << "\" in the log:\n" << logTail();
        return testing::AssertionSuccess();
    }

    // After a failed report: nothing was stored and the status is idle.
    void expectNothingStored()
    {
        EXPECT_EQ(m_defaults.storedTable(), tableBefore);
        EXPECT_EQ(m_defaults.status(), "0");
    }

    // The report that followed the failed one sent the very same changes, and the server converged.
    void expectSameChangesReportedAndConverged()
    {
        const auto bodies = m_records->requestBodies(e2etest::batchReportPath);
        ASSERT_GE(bodies.size(), 2u);
        EXPECT_EQ(bodies[bodies.size() - 1], bodies[bodies.size() - 2]);
        EXPECT_TRUE(serverMatchesFolder());
    }

    void expectReportedAgainAndConverged()
    {
        expectNothingStored();
        ASSERT_TRUE(syncStep());
        expectSameChangesReportedAndConverged();
    }

    void SetUp() override
    {
        SyncedFolder::SetUp();
        ASSERT_TRUE(changeAndSync("mkdir first && printf 'one\\n' > first/one.txt"));
        tableBefore = m_defaults.storedTable();
        ASSERT_TRUE(run("printf 'two\\n' > two.txt && mkdir -p second/deeper"));
    }

    Value tableBefore;
};

TEST_F(ReportFaults, TheServerStoppedDuringAReportStoresNothingAndTheSameChangesAreReportedToTheServerOnceItIsBack)
{
    // The server takes the request and holds its reply; stopping the server then closes the connection unanswered.
    m_records->addFault(Value::dictionary({ { "kind", "withhold" }, { "path", e2etest::batchReportPath } }));
    ASSERT_TRUE(passStep());
    ASSERT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_records->faultsUsedUp(); }));
    const auto failures = m_folders.logCount("network error");
    stopServer();
    ASSERT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_folders.logCount("network error") > failures; }))
        << logTail();
    expectNothingStored();
    // Back on the same database (on a new port, so the service is restarted pointed at it); SyncFile raises the
    // status and the first pass reports again. The server's request log kept the withheld request.
    restartServerAndService();
    expectSameChangesReportedAndConverged();
}

TEST_F(ReportFaults, AReplyThatIsNotJsonStoresNothingAndTheNextRaisedPassReportsTheSameChanges)
{
    ASSERT_TRUE(stepMeetingFault("not-json", "response (null)"));
    expectReportedAgainAndConverged();
}

TEST_F(ReportFaults, ADroppedConnectionStoresNothingAndTheNextRaisedPassReportsTheSameChanges)
{
    ASSERT_TRUE(stepMeetingFault("drop", "network error"));
    expectReportedAgainAndConverged();
}

TEST_F(ReportFaults, AnHttp500WithAJsonObjectCountsAsAcceptedSoTheTableIsStoredThoughTheServerChangedNothing)
{
    const auto stores = m_folders.logCount(e2etest::reportStored);
    m_records->addFault(Value::dictionary({ { "kind", "error-json" }, { "path", e2etest::batchReportPath } }));
    ASSERT_TRUE(passStep());
    // The transport hands over any JSON reply with status 0, whatever the HTTP status.
    ASSERT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_folders.logCount(e2etest::reportStored) > stores; }))
        << logTail();
    EXPECT_EQ(m_defaults.status(), "0");
    EXPECT_TRUE(storedTableMatchesFolder());
    // The server applied none of the changes, and the stored table says they are done: the next pass finds nothing
    // to report, so these items stay missing on the server until they change again.
    const auto files = m_records->files(m_account.computerId);
    EXPECT_EQ(files.size(), 2u);
    ASSERT_TRUE(syncStep());
    EXPECT_TRUE(lastChangeListWasEmpty());
}

TEST_F(ReportFaults, AnExceptionInAPassReachesTheServersErrorLogAndTheLoopGoesOnUntilTheTableIsRepaired)
{
    // A table entry without "oldPathKey" makes every pass fail while it is read.
    Value broken = tableBefore;
    broken.mutableAt(0).removeObjectForKey("oldPathKey");
    m_defaults.write(e2etest::serviceDomain, e2etest::tableKey, broken);
    m_defaults.write(e2etest::fileWatcherDomain, e2etest::statusKey, std::string("1"));
    // Every failed pass reports once; two reports show that the loop went on. The status stays raised meanwhile.
    ASSERT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_records->rows("errors").count() >= 2; }))
        << logTail();
    EXPECT_EQ(m_defaults.status(), "1");
    const Value error = m_records->rows("errors").at(0);
    EXPECT_EQ(e2etest::textOf(error.find("error_class")), "FileWatcherServiceXPC");
    EXPECT_EQ(e2etest::textOf(error.find("error_method")), "initFileWatcher");
    EXPECT_EQ(e2etest::textOf(error.find("error_message")), "Exception has occured");
    EXPECT_EQ(e2etest::textOf(error.find("computer_id")), m_account.computerId);
    EXPECT_EQ(e2etest::textOf(error.find("user_id")), m_account.userId);
    EXPECT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_folders.logCount("Error occured....") >= 1; }));
    // Repaired, the next pass runs through and reports what changed meanwhile.
    const auto stores = m_folders.logCount(e2etest::reportStored);
    m_defaults.write(e2etest::serviceDomain, e2etest::tableKey, tableBefore);
    ASSERT_TRUE(e2etest::eventuallyWithinServiceTime([&] { return m_folders.logCount(e2etest::reportStored) > stores; }))
        << logTail();
    EXPECT_TRUE(serverMatchesFolder());
}

}
