// The default mode's checks of a batch report's reply and its retries, against a loopback HTTP server that answers
// the batch report with the status and body each test scripts.

#include "SyncFixture.h"

#include "platform/HttpTestServers.h"
#include "platform/NetworkReachability.h"
#include "support/Eventually.h"
#include "support/ScopedEnvironment.h"

#include <atomic>
#include <mutex>

using platform::Value;
using namespace synctest;
using namespace std::chrono_literals;

namespace {

class SafeguardsReport : public synctest::SyncFixture {
protected:
    SafeguardsReport()
    {
        useGuardedMode();
        service->talksToServer = true;
        replies.server.Post("/KorbanholdRestService/SyncFileChanges.svc/SyncFilesInTableAndCloud",
            [this](const httplib::Request&, httplib::Response& response) {
                std::lock_guard lock(m_mutex);
                response.status = m_status;
                response.set_content(m_body, "application/json");
                ++m_requests;
            });
        replies.start();
        serverVariable.emplace("KORBANHOLD_SERVER", replies.url("").substr(std::string("http://").size()));
    }

    void answer(int status, std::string body)
    {
        std::lock_guard lock(m_mutex);
        m_status = status;
        m_body = std::move(body);
    }

    // A change record of the item a.txt that the table in memory also holds.
    Value change(const std::string& type, const std::string& fileNumber, const std::string& relative) const
    {
        Value record = tableRecord(fileNumber, path(relative), "");
        record.setObject(Value(type), "changeTypeKey");
        return record;
    }

    // Reports `changes` with `table` as the table in memory, and waits until the completion has decided.
    void report(const Value& table, const Value& changes)
    {
        firstPass();
        service->setUserDefaultsArray(table);
        raiseStatus("0");
        std::size_t decided = log.countStartingWith("filde ID updayted") + log.countStartingWith("The batch report stored");
        service->SyncFilesWithTableAndCloudProcess(changes);
        ASSERT_TRUE(testsupport::eventually([&] {
            return log.countStartingWith("filde ID updayted") + log.countStartingWith("The batch report stored") > decided;
        }));
    }

    bool logHolds(const std::string& part) const
    {
        for (const auto& line : log.lines()) {
            if (line.find(part) != std::string::npos)
                return true;
        }
        return false;
    }

    static std::string result(const std::string& fileId, const std::string& returnStatus, const std::string& number)
    {
        return "{\"FileID\": \"" + fileId + "\", \"ReturnStatus\": \"" + returnStatus + "\", \"BaseSystemFileID\": \""
            + number + "\"}";
    }

    httptest::LoopbackHttpServer replies;
    std::optional<testsupport::ScopedEnvironment> serverVariable;
    platform::PinnedReachabilityFlags reachable { platform::reachability::Reachable };

private:
    std::mutex m_mutex;
    int m_status = 200;
    std::string m_body = "[]";
    std::atomic<int> m_requests { 0 };
};

TEST_F(SafeguardsReport, AnHttpErrorStoresNothingWhateverTheBody)
{
    answer(500, "[" + result("F-5", "0", "5") + "]");
    report(Value::array({ tableRecord("5", path("a.txt"), "") }), Value::array({ change("Created", "5", "a.txt") }));
    EXPECT_FALSE(storedTable());
    EXPECT_TRUE(logHolds("The batch report stored nothing complete (the server answered with HTTP status 500)"));
}

TEST_F(SafeguardsReport, AnObjectOrAnEmptyListWhereTheResultsBelongStoresNothing)
{
    answer(200, "{}");
    report(Value::array({ tableRecord("5", path("a.txt"), "") }), Value::array({ change("Created", "5", "a.txt") }));
    EXPECT_FALSE(storedTable());
    EXPECT_TRUE(logHolds("the server's reply holds 0 results for 1 changes"));
}

TEST_F(SafeguardsReport, ARefusedChangeIsLeftUndoneAndTheAcceptedOneIsStored)
{
    answer(200, "[" + result("F-5", "0", "5") + ", " + result("", "1", "6") + ", " + result("", "1", "7") + "]");
    Value renamed = change("Renamed", "6", "new.txt");
    renamed.setObject(Value(path("old.txt")), "oldPathKey");
    Value table = Value::array({ tableRecord("5", path("a.txt"), ""), tableRecord("6", path("new.txt"), "F-6") });
    report(table, Value::array({ change("Created", "5", "a.txt"), renamed, change("Deleted", "7", "gone.txt") }));

    auto stored = storedTable();
    ASSERT_TRUE(stored);
    // The accepted creation is stored with its server identifier; the refused rename is back at its old path, and
    // the refused deletion's entry is back, so that the next pass reports both again.
    EXPECT_EQ(summary(*stored), (Lines { "Created a.txt", "Created old.txt", "Deleted gone.txt" }));
    EXPECT_EQ(text(entryWithPath(*stored, path("a.txt")), "FileIDKey"), "F-5");
    // Logged after the table's line that report() waits for.
    EXPECT_TRUE(testsupport::eventually(
        [&] { return logHolds("the server refused 2 of 3 changes; they are reported again"); }));
}

// Each accepted change's identifier goes to the first entry of its path and file number: not to another path of the
// same file number (a hard link), and a number text that is no file number is matched as a text.
TEST_F(SafeguardsReport, AnAcceptedIdentifierGoesToTheEntryOfTheChangesPathAndFileNumber)
{
    answer(200, "[" + result("F-b", "0", "5") + ", " + result("F-c", "0", "x7") + "]");
    report(Value::array({ tableRecord("5", path("a.txt"), ""), tableRecord("5", path("b.txt"), ""),
               tableRecord("x7", path("c.txt"), "") }),
        Value::array({ change("Created", "5", "b.txt"), change("Created", "x7", "c.txt") }));
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(text(entryWithPath(*stored, path("a.txt")), "FileIDKey"), "");
    EXPECT_EQ(text(entryWithPath(*stored, path("b.txt")), "FileIDKey"), "F-b");
    EXPECT_EQ(text(entryWithPath(*stored, path("c.txt")), "FileIDKey"), "F-c");
}

// On a table read from the store, a report refused in part changes a few entries: the store that follows encodes
// and writes their rows, not the table's. 1,000 items (about 1 s in the dev build).
TEST_F(SafeguardsReport, APartlyRefusedReportWritesOnlyTheRowsItChanges)
{
    service->talksToServer = false;
    sh("mkdir many && cd many && for i in $(seq 1000); do echo x > f$i.txt; done");
    settle();
    nextPass();
    service->talksToServer = true;
    const Value table = this->table();
    ASSERT_EQ(table.count(), 1001u);
    Value accepted = entryWithPath(table, path("many/f1.txt"));
    accepted.setObject(Value("Modified"), "changeTypeKey");
    Value refused = entryWithPath(table, path("many/f2.txt"));
    refused.setObject(Value("Modified"), "changeTypeKey");
    auto reportAndWait = [&](const Value& changes) {
        const std::size_t decided = log.countStartingWith("filde ID updayted");
        service->SyncFilesWithTableAndCloudProcess(changes);
        ASSERT_TRUE(testsupport::eventually([&] { return log.countStartingWith("filde ID updayted") > decided; }));
    };
    // The first report after the first sync stores every row once, in the key order the table keeps from then on.
    answer(200, "[" + result("F-3", "0", fileNumber("many/f3.txt")) + "]");
    Value first = entryWithPath(table, path("many/f3.txt"));
    first.setObject(Value("Modified"), "changeTypeKey");
    reportAndWait(Value::array({ first }));
    answer(200, "[" + result("F-1", "0", fileNumber("many/f1.txt")) + ", " + result("", "1", fileNumber("many/f2.txt"))
            + "]");
    const std::uint64_t before = defaults.elementsEncoded();

    reportAndWait(Value::array({ accepted, refused }));

    // The accepted entry's new identifier and the refused entry's cleared size and date: two records made and
    // written, not the table's 1,001.
    EXPECT_EQ(defaults.elementsEncoded() - before, 2u);
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->count(), 1001u);
    EXPECT_EQ(text(entryWithPath(*stored, path("many/f1.txt")), "FileIDKey"), "F-1");
    EXPECT_EQ(text(entryWithPath(*stored, path("many/f2.txt")), "fileSizeKey"), "");
    EXPECT_EQ(text(entryWithPath(*stored, path("many/f2.txt")), "filemodifiedDateKey"), "");
    EXPECT_EQ(text(entryWithPath(*stored, path("many/f4.txt")), "fileSizeKey"), "0");
}

// A rename the server refuses once is reported again as a rename; refused by the next report too, its entry goes
// back to the old path without its file number, so that the next pass reports the old path deleted and the new one
// created, which the server applies whatever it holds (for example the item already at its new path).
TEST_F(SafeguardsReport, ARenameRefusedTwiceInARowIsReportedNextAsADeletionAndACreation)
{
    answer(200, "[" + result("", "1", "6") + "]");
    Value renamed = change("Renamed", "6", "new.txt");
    renamed.setObject(Value(path("old.txt")), "oldPathKey");
    const Value table = Value::array({ tableRecord("6", path("new.txt"), "F-6") });

    report(table, Value::array({ renamed }));
    EXPECT_FALSE(storedTable());
    EXPECT_TRUE(logHolds("the server refused all 1 changes"));

    report(table, Value::array({ renamed }));
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(summary(*stored), (Lines { "Created old.txt" }));
    EXPECT_EQ(text(entryWithPath(*stored, path("old.txt")), "BaseSystemFileIDKey"), "");
    EXPECT_EQ(text(entryWithPath(*stored, path("old.txt")), "FileIDKey"), "F-6");
    EXPECT_TRUE(logHolds("The server refused the rename of " + path("old.txt") + " to " + path("new.txt")
        + " twice; it is reported as " + path("old.txt") + " deleted and " + path("new.txt") + " created"));
}

// Refusals of other reports in between start the count again: only two answered reports in a row count.
TEST_F(SafeguardsReport, ARenameRefusedTwiceButNotInARowIsReportedAsARenameAgain)
{
    Value renamed = change("Renamed", "6", "new.txt");
    renamed.setObject(Value(path("old.txt")), "oldPathKey");
    const Value table = Value::array({ tableRecord("6", path("new.txt"), "F-6"), tableRecord("5", path("a.txt"), "") });

    answer(200, "[" + result("", "1", "6") + "]");
    report(table, Value::array({ renamed }));
    // The retry that the refusal scheduled raises the status, so that the last refusal schedules one of its own.
    clock.advance(2s);
    ASSERT_TRUE(testsupport::eventually([&] { return status() == Value("1"); }));
    answer(200, "[" + result("F-5", "0", "5") + "]");
    report(table, Value::array({ change("Created", "5", "a.txt") }));
    answer(200, "[" + result("", "1", "6") + "]");
    report(table, Value::array({ renamed }));
    EXPECT_FALSE(logHolds("The server refused the rename of"));
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(text(entryWithPath(*stored, path("new.txt")), "BaseSystemFileIDKey"), "6");
}

TEST_F(SafeguardsReport, AFailedReportRaisesTheStatusAgainAfterTheBackoff)
{
    answer(503, "{\"error\": \"busy\"}");
    report(Value::array({ tableRecord("5", path("a.txt"), "") }), Value::array({ change("Created", "5", "a.txt") }));
    EXPECT_TRUE(logHolds("it is retried in 2000 ms"));
    EXPECT_EQ(status(), Value("0"));
    clock.advance(2s);
    ASSERT_TRUE(testsupport::eventually([&] { return status() == Value("1"); }));

    // The next failure waits twice as long.
    report(Value::array({ tableRecord("5", path("a.txt"), "") }), Value::array({ change("Created", "5", "a.txt") }));
    EXPECT_TRUE(logHolds("it is retried in 4000 ms"));
}

// The described outcome: any JSON reply is an answer.
TEST_F(SafeguardsReport, InStrictModeAnHttpErrorWithAListIsStored)
{
    useStrictMode();
    service->talksToServer = true;
    answer(500, "[" + result("F-5", "0", "5") + "]");
    report(Value::array({ tableRecord("5", path("a.txt"), "") }), Value::array({ change("Created", "5", "a.txt") }));
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(text(entryWithPath(*stored, path("a.txt")), "FileIDKey"), "F-5");
    EXPECT_FALSE(logHolds("The batch report stored"));
}

}
