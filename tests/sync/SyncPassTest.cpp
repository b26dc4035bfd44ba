// One pass of the loop: the status gate, the walk, the classification of every item, and the end of the pass.

#include "SyncFixture.h"

#include <thread>

using platform::Value;
using namespace synctest;

namespace {

class SyncPass : public synctest::SyncFixture {
protected:
    std::string fileWatcherDomainText() const { return testsupport::readFile(root.path() / "Preferences/Ulmaridon.FileWatcherXpcService.json"); }

    // Lets a batch report that a pass may have started reach the recorder before the test looks.
    void settleBackgroundQueue() const
    {
        std::mutex mutex;
        std::condition_variable done;
        bool ran = false;
        platform::Queue::globalBackground()->async([&] {
            std::lock_guard lock(mutex);
            ran = true;
            done.notify_all();
        });
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return ran; });
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
};

TEST_F(SyncPass, StatusZeroReadsTheDomainsOnlyWritesNothingAndSchedulesTheNextPass)
{
    writeFile("new.txt", "n");
    raiseStatus("0");
    // A table that would end any pass that read it.
    storeTable(Value("not a list"));
    std::string before = fileWatcherDomainText();
    service->setChangedListArray(Value::array({ Value("left as it was") }));

    service->syncFileInTablenCloud();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    EXPECT_TRUE(log.contains("syncFileInTablenCloud: 0"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_EQ(changes(), Value::array({ Value("left as it was") }));
    EXPECT_EQ(fileWatcherDomainText(), before);
    EXPECT_EQ(storedTable(), Value("not a list"));
    EXPECT_EQ(clock.pendingCount(), 1u);
}

TEST_F(SyncPass, AbsentStatusCountsAsIdle)
{
    writeFile("new.txt", "n");
    writeDomain("Ulmaridon.FileWatcherXpcService", Value::dictionary({ { "other", Value("1") } }));
    service->syncFileInTablenCloud();
    EXPECT_TRUE(log.contains("syncFileInTablenCloud: (null)"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_EQ(clock.pendingCount(), 1u);
}

TEST_F(SyncPass, MissingFileWatcherDomainCountsAsIdle)
{
    writeFile("new.txt", "n");
    service->syncFileInTablenCloud();
    EXPECT_TRUE(log.contains("syncFileInTablenCloud: (null)"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_FALSE(readDomain("Ulmaridon.FileWatcherXpcService").has_value());
}

TEST_F(SyncPass, NamesWithANonAsciiLetterAHashOrATabAreLoggedAndNeverSynced)
{
    writeFile("café.txt", "c");
    writeFile("a#b.txt", "h");
    writeFile("tab\tname.txt", "t");
    writeFile("plain-name (1).txt", "p");
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created plain-name (1).txt" }));
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 3u);
    acceptReport();
    nextPass();
    EXPECT_EQ(changes().count(), 0u);
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 6u);
}

TEST_F(SyncPass, ItemsBelowAFolderWithAnIllegalNameAreIllegalToo)
{
    writeFile("bad#folder/inside.txt", "i");
    firstPass();
    EXPECT_EQ(changes().count(), 0u);
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 2u);
}

TEST_F(SyncPass, DsStoreFilesAreIgnoredAtAnyDepthButNotNamesThatOnlyEndInDsStore)
{
    writeFile(".DS_Store", "d");
    writeFile("x/.DS_Store", "d");
    writeFile("x/y/.DS_Store", "d");
    writeFile("x/y/z.DS_Store", "d");
    writeFile("my.DS_Store", "d");
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created my.DS_Store", "Created x", "Created x/y", "Created x/y/z.DS_Store" }));
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 0u);
}

TEST_F(SyncPass, TwoItemsWithOneFileNumberBothResolveToTheFirstItem)
{
    useStrictMode();
    writeFile("a.txt", "linked");
    sh("ln a.txt b.txt");
    firstPass();
    // Both turns create the first item; the second path is never looked at.
    EXPECT_EQ(summary(changes()), (Lines { "Created a.txt", "Created a.txt" }));
    EXPECT_EQ(text(changes().at(1), "BaseSystemFileIDKey"), fileNumber("b.txt"));
    acceptReport();
    nextPass();
    // Both turns now find the first entry; the duplicate entry is never marked seen and goes.
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a.txt" }));
    EXPECT_EQ(summary(table()), (Lines { "Created a.txt" }));
}

TEST_F(SyncPass, KnownFileNumberGoesToTheRenameProcessWhateverItsPath)
{
    makeFolder("far/away");
    writeFile("a.txt", "a");
    firstPass();
    acceptReport();
    sh("mv a.txt far/away/other.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a.txt", "Created far/away/other.txt" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S" + fileNumber("far/away/other.txt"));
}

TEST_F(SyncPass, UnknownFileNumberAtAKnownPathIsAModification)
{
    writeFile("a.txt", "a");
    firstPass();
    acceptReport();
    sh("mkdir folder && rm a.txt && mv folder a.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Modified a.txt" }));
    EXPECT_EQ(text(changes().at(0), "isFilekey"), "0");
}

TEST_F(SyncPass, UnknownFileNumberAtAnUnknownPathIsACreation)
{
    writeFile("a.txt", "a");
    firstPass();
    acceptReport();
    writeFile("b.txt", "b");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created b.txt" }));
}

TEST_F(SyncPass, EmptyChangeListWritesTheIdleStatusAndStartsNoBatchReport)
{
    firstPass();
    EXPECT_TRUE(log.contains("Final List changed list (\n)"));
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"), Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
    settleBackgroundQueue();
    EXPECT_EQ(service->countOf("SyncFilesWithTableAndCloudProcess"), 0u);
}

TEST_F(SyncPass, IdleStatusIsWrittenThroughTheDefaultsThatSyncFileSet)
{
    // The end of a pass writes the status through `prefs`, which only SyncFile sets: a pass run on an object whose
    // SyncFile was never called leaves the status as it found it.
    raiseStatus("1");
    service->syncFileInTablenCloud();
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 1u);
    EXPECT_EQ(status(), Value("1"));
    service->SyncFile();
    EXPECT_EQ(status(), Value("0"));
}

TEST_F(SyncPass, ChangeListIsLoggedAndHandedToTheBatchReportAfterTheIdleStatus)
{
    writeFile("a.txt", "a");
    // What the report finds when it starts: the list already logged and the idle status already written.
    std::optional<Value> statusAtReport;
    std::size_t loggedAtReport = 0;
    service->duringBatchReport = [&] {
        statusAtReport = readDomain("Ulmaridon.FileWatcherXpcService");
        loggedAtReport = log.countStartingWith("Final List changed list");
    };
    firstPass();
    EXPECT_TRUE(log.contains("Final List changed list " + changes().description()));
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"), Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
    ASSERT_TRUE(service->waitFor("SyncFilesWithTableAndCloudProcess", 1));
    EXPECT_EQ(service->calls().back().changes, changes());
    EXPECT_EQ(statusAtReport, Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
    EXPECT_EQ(loggedAtReport, 1u);
}

TEST_F(SyncPass, MissingSyncedFolderSettingFindsNothing)
{
    writeFile("a.txt", "a");
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "computerIdKey", Value("C-7") } }));
    firstPass();
    EXPECT_EQ(changes().count(), 0u);
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
}

TEST_F(SyncPass, ItemsInASharedFolderGoToTheSharedCreationInWalkOrderAndNotToTheChangeList)
{
    writeFile("Top (Shared)/f.txt", "f");
    writeFile("plain.txt", "p");
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created plain.txt" }));
    auto calls = service->calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[0].operation, "performSharedFilesCreationProcess");
    EXPECT_EQ(calls[0].arguments, (Lines { path("Top (Shared)") }));
    EXPECT_EQ(calls[1].operation, "performSharedFilesCreationProcess");
    EXPECT_EQ(calls[1].arguments, (Lines { path("Top (Shared)/f.txt") }));
}

TEST_F(SyncPass, SharedItemWhoseFileNumberIsListedGoesToTheSharedRename)
{
    writeFile("Top (Shared)/f.txt", "f");
    writeDomain("Ulmaridon.SharedFilesXpcService",
        Value::dictionary({ { "SharedFileDataKey",
            Value::array({ record({ { "FileID", fileNumber("Top (Shared)/f.txt") }, { "FileName", path("Top (Shared)/old.txt") } }) }) } }));
    firstPass();
    auto calls = service->calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[1].operation, "performSharedFilesRenameProcess");
    EXPECT_EQ(calls[1].arguments, (Lines { path("Top (Shared)/f.txt"), fileNumber("Top (Shared)/f.txt") }));
}

TEST_F(SyncPass, SharedListWithARecordWithoutANameStopsEverySharedCreation)
{
    writeFile("Top (Shared)/f.txt", "f");
    writeDomain("Ulmaridon.SharedFilesXpcService",
        Value::dictionary({ { "SharedFileDataKey", Value::array({ record({ { "FileID", "1" } }) }) } }));
    firstPass();
    EXPECT_EQ(service->countOf("performSharedFilesCreationProcess"), 0u);
    EXPECT_EQ(service->countOf("performSharedFilesRenameProcess"), 0u);
}

TEST_F(SyncPass, SharedRecordsNoItemMatchedAreDroppedAndMatchedOnesKept)
{
    writeFile("Top (Shared)/f.txt", "f");
    Value seen = record({ { "FileID", fileNumber("Top (Shared)/f.txt") }, { "FileName", path("Top (Shared)/f.txt") }, { "DeleteKey", "0" } });
    Value vanished = record({ { "FileID", "18446744073709551009" }, { "FileName", path("Top (Shared)/gone.txt") } });
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value::array({ vanished, seen }) } }));
    firstPass();
    Value shared = service->sharedFilesArray();
    ASSERT_EQ(shared.count(), 1u);
    EXPECT_EQ(text(shared.at(0), "FileName"), path("Top (Shared)/f.txt"));
    EXPECT_EQ(text(shared.at(0), "DeleteKey"), "0");
}

TEST_F(SyncPass, EverySharedRecordStartsThePassMarkedForDeletion)
{
    writeFile("A (Shared)/f.txt", "f");
    Value listed = record({ { "FileID", "18446744073709551010" }, { "FileName", path("A (Shared)/x.txt") }, { "DeleteKey", "0" } });
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value::array({ listed, listed }) } }));
    Value during;
    service->duringSharedCreation = [&] { during = service->sharedFilesArray(); };
    firstPass();
    ASSERT_EQ(during.count(), 2u);
    EXPECT_EQ(text(during.at(0), "DeleteKey"), "1");
    EXPECT_EQ(text(during.at(1), "DeleteKey"), "1");
    EXPECT_EQ(service->sharedFilesArray().count(), 0u);
}

}

TEST_F(SyncPass, ATableAnotherProcessStoresIsTheOneTheNextPassReads)
{
    writeFile("a.txt", "a");
    writeFile("b.txt", "b");
    firstPass();
    acceptReport();
    nextPass();
    EXPECT_EQ(changes().count(), 0u);
    // Another program of the product takes b.txt out of the stored table between two passes (its own store, its own
    // database connection): the very next pass reads that table and finds b.txt new.
    Value table = *storedTable();
    for (std::size_t index = 0; index < table.count(); ++index)
        if (text(table.at(index), "BaseSystemFilePathKey") == path("b.txt"))
            table.removeAt(index--);
    storeTable(table);
    nextPass();
    EXPECT_EQ(summary(changes()), Lines { "Created b.txt" });
}
