// Completions of server requests that come while later passes run, against a real korbanhold-devserver. Run under
// ThreadSanitizer too: the passes run on this thread, the completions on the main queue's.

#include "ServerFixture.h"

#include "support/Eventually.h"

#include <chrono>
#include <set>
#include <string>
#include <vector>
#include <thread>

using namespace synctest;
using platform::Value;

namespace {

constexpr const char* insertFilePath = "SyncFileChanges.svc/InsertFile";
constexpr const char* batchPath = "SyncFileChanges.svc/SyncFilesInTableAndCloud";

class ReportRace : public ServerFixture {
protected:
    ReportRace() { makeActiveSharedFolder("Team (Shared)"); }

    // The last component of a path in the server's form.
    static std::string lastPathComponentOf(const std::string& serverPath)
    {
        return serverPath.substr(serverPath.rfind('\\') + 1);
    }

    // The files of `list` whose entries name an item of the shared folder, each once.
    std::set<std::string> sharedNames(const Value& list) const
    {
        std::set<std::string> names;
        for (const Value& entry : list.elements()) {
            std::string name = text(entry, "FileName");
            if (name.rfind(path("Team (Shared)/"), 0) == 0)
                names.insert(name.substr(path("Team (Shared)/").size()));
        }
        return names;
    }
};

TEST_F(ReportRace, AnEntryAppendedAfterALaterPassIsKeptWithWhatThatPassStored)
{
    // Pass 1 registers a.txt and its reply is late. Pass 2 renames b.txt (an item of another user) in the list and
    // stores the list, and registers a.txt again. Both of a.txt's entries and the rename end up stored.
    writeFile("Team (Shared)/a.txt", "alpha");
    writeFile("Team (Shared)/b.txt", "beta");
    Value other = record({ { "FileName", path("Team (Shared)/b.txt") }, { "FileID", fileNumber("Team (Shared)/b.txt") },
        { "MyFile", "0" }, { "OwnerFileID", "5" } });
    storeSharedList(Value::array({ sharedFolderRecord("Team (Shared)"), other }));
    addFault("delay", insertFilePath, 400);
    firstPass();
    sh("mv 'Team (Shared)/b.txt' 'Team (Shared)/renamed.txt'");
    nextPass();
    ASSERT_TRUE(waitForReplies(2));

    auto stored = storedSharedList();
    ASSERT_TRUE(stored);
    EXPECT_EQ(sharedNames(*stored), (std::set<std::string> { "a.txt", "renamed.txt" }));
    EXPECT_EQ(*stored, service->sharedFilesArray());

    // The next pass reloads the stored list: a.txt is known, nothing is registered again.
    nextPass();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(3));
    EXPECT_EQ(bodiesOf(insertFilePath).size(), 2u);
    EXPECT_EQ(sharedNames(service->sharedFilesArray()), (std::set<std::string> { "a.txt", "renamed.txt" }));
}

TEST_F(ReportRace, EntriesAppendedWhilePassesRunAreNeverLost)
{
    constexpr int items = 12;
    std::set<std::string> expected;
    for (int item = 0; item < items; ++item) {
        expected.insert("f" + std::to_string(item) + ".txt");
        writeFile("Team (Shared)/f" + std::to_string(item) + ".txt", "x");
    }
    // And a change for the batch report, whose completion then runs among the others.
    writeFile("plain.txt", "plain");
    firstPass();

    // Passes one after the other while the replies come in, until every item is in the stored list and the
    // report's table is stored.
    auto converged = [&] {
        auto list = storedSharedList();
        auto table = storedTable();
        return list && sharedNames(*list) == expected && table && table->count() == 1
            && text(table->at(0), "FileIDKey") != "";
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!converged() && std::chrono::steady_clock::now() < deadline) {
        nextPass();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(converged());

    // Once every request has had its reply, the list in memory and the stored one hold every item ...
    ASSERT_TRUE(testsupport::eventually([&] {
        std::size_t sent = admin("requests").count();
        return waitForReplies(sent) && admin("requests").count() == sent;
    }));
    EXPECT_EQ(sharedNames(service->sharedFilesArray()), expected);
    EXPECT_EQ(sharedNames(*storedSharedList()), expected);

    // ... and a further pass sends nothing.
    std::size_t sent = admin("requests").count();
    nextPass();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(sent + 1));
    EXPECT_EQ(admin("requests").count(), sent + 1);
}

TEST_F(ReportRace, EachReportSendsTheChangeListItsPassHandedOver)
{
    // Strict: a pass does not wait for the report under way.
    useStrictMode();
    // The second pass empties and refills the change list while the first report may not have been sent yet. Its
    // reply waits a second, so that its completion's idle status cannot come between the status the second pass
    // raises and the pass that reads it (the pass would then find nothing to do).
    writeFile("a.txt", "alpha");
    addFault("delay", batchPath, 1000);
    firstPass();
    writeFile("b.txt", "beta");
    nextPass();
    ASSERT_TRUE(waitForReplies(2));

    std::multiset<std::vector<std::string>> handedOver, sent;
    for (const auto& call : service->calls()) {
        if (call.operation == "SyncFilesWithTableAndCloudProcess")
            handedOver.insert(summary(call.changes));
    }
    for (const Value& batch : bodiesOf(batchPath)) {
        std::vector<std::string> lines;
        for (const Value& change : batch.elements())
            lines.push_back(text(change, "ChangeType") + " " + lastPathComponentOf(text(change, "FullPath")));
        sent.insert(lines);
    }
    EXPECT_EQ(handedOver.size(), 2u);
    EXPECT_EQ(sent, handedOver);
}

TEST_F(ReportRace, AReportCompletionAndALaterPassBothLeaveTheTableWhole)
{
    // Strict: a pass does not wait for the report under way.
    useStrictMode();
    writeFile("a.txt", "alpha");
    addFault("delay", batchPath, 300);
    firstPass();
    // A second pass starts before the first report's reply: it reads the table not yet stored and reports a.txt
    // again along with b.txt.
    writeFile("b.txt", "beta");
    nextPass();
    ASSERT_TRUE(testsupport::eventually([&] { return log.countStartingWith("filde ID updayted  ") == 2; }));

    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->count(), 2u);
    for (const Value& entry : stored->elements())
        EXPECT_NE(text(entry, "FileIDKey"), "") << text(entry, "BaseSystemFilePathKey");
    EXPECT_EQ(status(), Value("0"));
}

}
