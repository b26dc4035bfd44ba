// The batch report against a real korbanhold-devserver: what the request carries for each change record, and what
// the completion stores for each outcome.

#include "ServerFixture.h"

#include "platform/Json.h"
#include "support/Eventually.h"

#include <algorithm>
#include <future>
#include <memory>

using namespace synctest;
using platform::Value;

namespace {

constexpr const char* batchPath = "SyncFileChanges.svc/SyncFilesInTableAndCloud";

class BatchReport : public ServerFixture {
protected:
    static std::optional<std::size_t> positionOfPath(const Value& table, const std::string& fullPath)
    {
        for (std::size_t index = 0; index < table.count(); ++index)
            if (text(table.at(index), "BaseSystemFilePathKey") == fullPath)
                return index;
        return std::nullopt;
    }

    // The settings snapshot the report reads is taken by SyncFile; its pass finds the synced folder empty.
    void readSettings() { firstPass(); }

    Value change(const std::string& type, const std::string& fileNumber, const std::string& relative,
        const std::string& oldPath, const std::string& fileID) const
    {
        Value record = tableRecord(fileNumber, path(relative), fileID);
        record.setObject(Value(type), "changeTypeKey");
        record.setObject(Value(oldPath), "oldPathKey");
        return record;
    }

    // The one batch the server received, as the array of its changes.
    Value onlyBatch() const
    {
        auto bodies = bodiesOf(batchPath);
        EXPECT_EQ(bodies.size(), 1u);
        return bodies.empty() ? Value::array() : bodies[0];
    }

    bool waitForStoredIdentifiers()
    {
        return testsupport::eventually([&] { return log.countStartingWith("filde ID updayted  ") == 1; });
    }

    // The server's form of a local path: no leading "/", a backslash between components.
    static std::string serverForm(const std::string& local)
    {
        std::string path = local.substr(1);
        std::replace(path.begin(), path.end(), '/', '\\');
        return path;
    }
};

TEST_F(BatchReport, ARenamedRecordSendsTheOldAndTheNewPathInTheServersForm)
{
    readSettings();
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Renamed", "11", "b.txt", path("a.txt"), "S11") }));
    ASSERT_TRUE(waitForReplies(1));

    Value sent = onlyBatch().at(0);
    EXPECT_EQ(text(sent, "ChangeType"), "Renamed");
    EXPECT_EQ(text(sent, "OldFullPath"), serverForm(path("a.txt")));
    EXPECT_EQ(text(sent, "FullPath"), serverForm(path("b.txt")));
}

TEST_F(BatchReport, ACreatedRecordSendsTheOldPathAndTheFileIdentifierAsEmptyStrings)
{
    readSettings();
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "11", "a.txt", "", "") }));
    ASSERT_TRUE(waitForReplies(1));

    Value sent = onlyBatch().at(0);
    ASSERT_NE(sent.find("OldFullPath"), nullptr);
    EXPECT_EQ(text(sent, "OldFullPath"), "");
    EXPECT_EQ(text(sent, "FileID"), "");
}

TEST_F(BatchReport, EachRecordCarriesItsValuesAndTheSyncedFolderSettingInTheServersForm)
{
    readSettings();
    Value first = change("Modified", "11", "a.txt", "", "S11");
    Value second = change("Deleted", "12", "d/b.txt", "", "S12");
    second.setObject(Value("0"), "isFilekey");
    service->SyncFilesWithTableAndCloudProcess(Value::array({ first, second }));
    ASSERT_TRUE(waitForReplies(1));

    Value batch = onlyBatch();
    ASSERT_EQ(batch.count(), 2u);
    EXPECT_EQ(batch.at(0), Value::dictionary({ { "ChangeType", Value("Modified") }, { "OldFullPath", Value("") },
                               { "FullPath", Value(serverForm(path("a.txt"))) }, { "FileSize", Value("4") },
                               { "KorbanholdPath", Value(serverForm(home())) }, { "IsFile", Value("1") },
                               { "ComputerID", Value("C-7") }, { "FileModifiedDate", Value("2023-01-02 03:04:05") },
                               { "BaseSystemFileID", Value("11") }, { "FileID", Value("S11") } }));
    EXPECT_EQ(text(batch.at(1), "ChangeType"), "Deleted");
    EXPECT_EQ(text(batch.at(1), "FullPath"), serverForm(path("d/b.txt")));
    EXPECT_EQ(text(batch.at(1), "KorbanholdPath"), serverForm(home()));
    EXPECT_EQ(text(batch.at(1), "IsFile"), "0");
}

TEST_F(BatchReport, ARecordWithoutAKeySendsNoField)
{
    readSettings();
    Value sparse = record({ { "changeTypeKey", "Deleted" }, { "BaseSystemFilePathKey", path("a.txt") } });
    service->SyncFilesWithTableAndCloudProcess(Value::array({ sparse }));
    ASSERT_TRUE(waitForReplies(1));

    EXPECT_EQ(onlyBatch().at(0).keys(), (std::vector<std::string> { "ChangeType", "FullPath", "KorbanholdPath" }));
}

TEST_F(BatchReport, ANullOldPathIsNotConvertedAndTravelsAsJsonNull)
{
    readSettings();
    Value renamed = change("Renamed", "11", "b.txt", "", "S11");
    renamed.setObject(Value::null(), "oldPathKey");
    service->SyncFilesWithTableAndCloudProcess(Value::array({ renamed }));
    ASSERT_TRUE(waitForReplies(1));

    Value sent = onlyBatch().at(0);
    ASSERT_NE(sent.find("OldFullPath"), nullptr);
    EXPECT_TRUE(sent.find("OldFullPath")->isNull()) << sent.description();
    EXPECT_EQ(admin("errors").count(), 0u);
}

TEST_F(BatchReport, ValuesThatAreNotTextTravelAsTheyStandNumbersAsNumbersAndNullAsNull)
{
    readSettings();
    Value modified = change("Modified", "11", "a.txt", "", "S11");
    modified.setObject(Value::integer(4), "fileSizeKey");
    modified.setObject(Value::unsignedInteger(11), "BaseSystemFileIDKey");
    modified.setObject(Value::null(), "FileIDKey");
    modified.setObject(Value::null(), "computerIDKey");
    service->SyncFilesWithTableAndCloudProcess(Value::array({ modified }));
    ASSERT_TRUE(waitForReplies(1));

    Value sent = onlyBatch().at(0);
    ASSERT_NE(sent.find("FileSize"), nullptr);
    EXPECT_EQ(*sent.find("FileSize"), Value::integer(4));
    ASSERT_NE(sent.find("BaseSystemFileID"), nullptr);
    EXPECT_EQ(*sent.find("BaseSystemFileID"), Value::integer(11));
    ASSERT_NE(sent.find("FileID"), nullptr);
    EXPECT_TRUE(sent.find("FileID")->isNull());
    ASSERT_NE(sent.find("ComputerID"), nullptr);
    EXPECT_TRUE(sent.find("ComputerID")->isNull());
    EXPECT_EQ(text(sent, "ChangeType"), "Modified");
}

TEST_F(BatchReport, TheReportSendsTheChangeListAsThePassHandedItOverWhileTheNextPassRefillsIt)
{
    // The first pass's report is held at its start until the next pass has built its own change list.
    writeFile("a.txt", "a");
    std::promise<void> nextPassDone;
    std::shared_future<void> released = nextPassDone.get_future().share();
    service->duringBatchReport = [released] { released.wait(); };
    firstPass();
    writeFile("b.txt", "b");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created a.txt", "Created b.txt" }));
    nextPassDone.set_value();
    ASSERT_TRUE(waitForReplies(2));

    // The held report sent the one change of its pass; the next pass's report sent both.
    std::vector<std::size_t> sizes;
    for (const Value& body : bodiesOf(batchPath))
        sizes.push_back(body.count());
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(sizes, (std::vector<std::size_t> { 1, 2 }));
}

TEST_F(BatchReport, AFailureWhileHandingOverGoesToTheErrorReportAndSendsNoBatch)
{
    readSettings();
    // An empty path has no first character for the conversion to drop.
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "11", "a.txt", "", "") }));
    Value broken = change("Created", "12", "b.txt", "", "");
    broken.setObject(Value(""), "BaseSystemFilePathKey");
    service->SyncFilesWithTableAndCloudProcess(Value::array({ broken }));
    ASSERT_TRUE(waitForReplies(2));

    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(admin("errors").count(), 1u);
    EXPECT_EQ(bodiesOf(batchPath).size(), 1u);
}

TEST_F(BatchReport, AnEmptyChangeListSendsNoRequest)
{
    readSettings();
    service->SyncFilesWithTableAndCloudProcess(Value::array());
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(bodiesOf(batchPath).size(), 0u);
}

TEST_F(BatchReport, AnAcceptedReportStoresTheTableWithTheServersIdentifiersAndClearsTheBusyFlag)
{
    writeFile("a.txt", "alpha");
    makeFolder("d");
    writeFile("d/b.txt", "beta");
    firstPass();
    ASSERT_TRUE(waitForStoredIdentifiers());

    Value files = admin("files?computer=C-7");
    ASSERT_EQ(files.count(), 3u);
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->count(), 3u);
    for (const Value& file : files.elements()) {
        std::string local = "/" + text(file, "full_path");
        std::replace(local.begin(), local.end(), '\\', '/');
        EXPECT_EQ(text(entryWithPath(*stored, local), "FileIDKey"), text(file, "file_id")) << local;
    }
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"),
        Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
    EXPECT_EQ(table(), *stored);
    // The line shows the table as read back from the store.
    EXPECT_EQ(log.countStartingWith("filde ID updayted  " + stored->description()), 1u);
}

TEST_F(BatchReport, AnAcceptedReportStoresOnlyTheRowsOfTheItemsThatChanged)
{
    for (int file = 0; file < 50; ++file)
        writeFile("f" + std::to_string(file) + ".txt", "x");
    firstPass();
    ASSERT_TRUE(waitForStoredIdentifiers());
    // The first pass after the first sync gives every entry the key order of a seen entry: every row once.
    sh("mv '" + path("f1.txt") + "' '" + path("g1.txt") + "'");
    nextPass();
    ASSERT_TRUE(testsupport::eventually([&] { return log.countStartingWith("filde ID updayted  ") == 2; }));

    // From then on a rename writes its own entry's row, once with the change and once with the server's identifier,
    // and the row of the entry the last pass made (g1.txt), which takes the key order of a seen entry: 3 of 50.
    const auto before = defaults.rowsWritten();
    sh("mv '" + path("f2.txt") + "' '" + path("g2.txt") + "'");
    nextPass();
    ASSERT_TRUE(testsupport::eventually([&] { return log.countStartingWith("filde ID updayted  ") == 3; }));
    EXPECT_LE(defaults.rowsWritten() - before, 3u);
    EXPECT_GE(defaults.rowsWritten() - before, 1u);

    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->count(), 50u);
    EXPECT_EQ(table(), *stored);
    EXPECT_EQ(text(entryWithPath(*stored, path("g2.txt")), "changeTypeKey"), "Renamed");
    // The pass after the stores reads them back: nothing is left to report.
    nextPass();
    EXPECT_EQ(changes().count(), 0u);

    // Another program's store after the service's own is what the next pass reads: f3.txt taken out of the table
    // is new again.
    Value changed = *stored;
    changed.removeAt(*positionOfPath(changed, path("f3.txt")));
    storeTable(changed);
    nextPass();
    EXPECT_EQ(summary(changes()), Lines { "Created f3.txt" });
    ASSERT_TRUE(testsupport::eventually([&] { return log.countStartingWith("filde ID updayted  ") == 4; }));
}

TEST_F(BatchReport, AResultMatchingTwoTableEntriesUpdatesOnlyTheFirst)
{
    readSettings();
    service->setUserDefaultsArray(Value::array({ tableRecord("5", path("a.txt"), ""), tableRecord("5", path("b.txt"), "") }));
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "5", "a.txt", "", "") }));
    ASSERT_TRUE(waitForStoredIdentifiers());

    std::string serverID = text(admin("files?computer=C-7").at(0), "file_id");
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->count(), 2u);
    EXPECT_EQ(text(stored->at(0), "FileIDKey"), serverID);
    EXPECT_EQ(text(stored->at(1), "FileIDKey"), "");
}

TEST_F(BatchReport, AResultWithoutAMatchingTableEntryIsSkipped)
{
    readSettings();
    service->setUserDefaultsArray(Value::array({ tableRecord("5", path("a.txt"), "S5") }));
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "6", "b.txt", "", "") }));
    ASSERT_TRUE(waitForStoredIdentifiers());
    EXPECT_EQ(storedTable(), Value::array({ tableRecord("5", path("a.txt"), "S5") }));
}

TEST_F(BatchReport, AnAcceptedReplyWithAnEmptyListStillStoresTheTableTwiceAndClearsTheBusyFlag)
{
    useStrictMode();
    readSettings();
    writeDomain("Ulmaridon.FileWatcherXpcService",
        Value::dictionary({ { "FileWatcherStatusKey", Value("1") }, { "OtherKey", Value("x") } }));
    Value inMemory = Value::array({ tableRecord("5", path("a.txt"), "") });
    service->setUserDefaultsArray(inMemory);
    // HTTP 500 with a JSON object: the transport hands the object on with status 0, and an object gives the batch
    // decoder no results.
    addFault("error-json", batchPath);
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "5", "a.txt", "", "") }));
    ASSERT_TRUE(waitForStoredIdentifiers());

    // Both stores land in the service's database; the second finds every row as the first left it and writes none.
    EXPECT_EQ(storedTable(), inMemory);
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"),
        Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
}

class FailedBatchReport : public BatchReport, public ::testing::WithParamInterface<const char*> { };

TEST_P(FailedBatchReport, LeavesTheStoredTableAndTheFileWatcherDomainUntouched)
{
    readSettings();
    Value accepted = Value::array({ tableRecord("5", path("a.txt"), "S5") });
    storeTable(accepted);
    Value busy = Value::dictionary({ { "FileWatcherStatusKey", Value("1") }, { "OtherKey", Value("x") } });
    writeDomain("Ulmaridon.FileWatcherXpcService", busy);
    service->setUserDefaultsArray(Value::array({ tableRecord("6", path("b.txt"), "") }));
    addFault(GetParam(), batchPath);
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "6", "b.txt", "", "") }));
    ASSERT_TRUE(waitForReplies(1));

    EXPECT_EQ(storedTable(), accepted);
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"), busy);
    EXPECT_EQ(log.countStartingWith("filde ID updayted"), 0u);
}

// A reply that is not JSON (status 5), an HTML error page (status 5), a connection closed without a reply (status 2).
INSTANTIATE_TEST_SUITE_P(Replies, FailedBatchReport, ::testing::Values("not-json", "error-html", "drop"));

TEST_F(BatchReport, TheCompletionStoresTheTableTheServiceHoldsWhenTheReplyComes)
{
    readSettings();
    service->setUserDefaultsArray(Value::array({ tableRecord("5", path("a.txt"), "") }));
    addFault("delay", batchPath, 300);
    service->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "5", "a.txt", "", "") }));
    Value later = Value::array({ tableRecord("7", path("c.txt"), ""), tableRecord("5", path("a.txt"), "") });
    service->setUserDefaultsArray(later);
    ASSERT_TRUE(waitForStoredIdentifiers());

    std::string serverID = text(admin("files?computer=C-7").at(0), "file_id");
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->count(), 2u);
    EXPECT_EQ(text(stored->at(0), "BaseSystemFilePathKey"), path("c.txt"));
    EXPECT_EQ(text(stored->at(1), "FileIDKey"), serverID);
}

TEST_F(BatchReport, TheServiceLivesUntilTheCompletionHasRun)
{
    // A service of its own that has run no pass, so that nothing but the request holds it.
    auto reporting = std::make_shared<RecordingService>(defaults);
    reporting->talksToServer = true;
    reporting->setUserDefaultsArray(Value::array({ tableRecord("5", path("a.txt"), "") }));
    addFault("delay", batchPath, 200);
    reporting->SyncFilesWithTableAndCloudProcess(Value::array({ change("Created", "5", "a.txt", "", "") }));
    std::weak_ptr<RecordingService> weak = reporting;
    reporting.reset();
    EXPECT_FALSE(weak.expired());
    ASSERT_TRUE(waitForStoredIdentifiers());
    EXPECT_TRUE(testsupport::eventually([&] { return weak.expired(); }));
    auto stored = storedTable();
    ASSERT_TRUE(stored);
    EXPECT_NE(text(stored->at(0), "FileIDKey"), "");
}

}
