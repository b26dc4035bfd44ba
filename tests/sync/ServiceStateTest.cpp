// SyncFile, the preference domains it shares with the product, and the normalisation of the table.

#include "SyncFixture.h"

using platform::Value;
using namespace synctest;

namespace {

class ServiceState : public synctest::SyncFixture { };

TEST_F(ServiceState, SyncFileLeavesTheBusyStatusAsTheOnlyKeyUntilThePassWritesTheIdleOneTheSameWay)
{
    writeDomain("Ulmaridon.FileWatcherXpcService",
        Value::dictionary({ { "FileWatcherStatusKey", Value("0") }, { "WatcherPathKey", Value("/somewhere") } }));
    writeFile("A (Shared)/f.txt", "f");
    std::optional<Value> during;
    service->duringSharedCreation = [&] { during = readDomain("Ulmaridon.FileWatcherXpcService"); };
    firstPass();
    EXPECT_TRUE(log.contains("FileWatcher 1 in syncfile initially"));
    EXPECT_EQ(during, Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }));
    EXPECT_EQ(readDomain("Ulmaridon.FileWatcherXpcService"), Value::dictionary({ { "FileWatcherStatusKey", Value("0") } }));
}

TEST_F(ServiceState, TheFirstPassTakesSnapshotsOfTheSettingsAndOfTheStatusThatSyncFileRaised)
{
    raiseStatus("0");
    service->SyncFile();
    EXPECT_EQ(text(*service->korbanholdPrefs(), "computerIdKey"), "C-7");
    EXPECT_EQ(text(*service->fileWatcherPrefs(), "FileWatcherStatusKey"), "1");
}

TEST_F(ServiceState, TableRecordsAreNormalisedWithRemoveKeyOneAndTheSettingsComputerId)
{
    Value stored = record({
        { "BaseSystemFileIDKey", "18446744073709551011" },
        { "BaseSystemFilePathKey", path("gone.txt") },
        { "changeTypeKey", "Created" },
        { "oldPathKey", "" },
        { "isFilekey", "1" },
        { "fileSizeKey", "1" },
        { "filemodifiedDateKey", "2023-01-02 03:04:05" },
        { "removeKey", "0" },
        { "computerIDKey", "an old computer" },
        { "extraKey", "not copied" },
    });
    storeTable(Value::array({ stored }));
    writeFile("A (Shared)/f.txt", "f");
    Value during;
    service->duringSharedCreation = [&] { during = service->userDefaultsArray(); };
    firstPass();
    ASSERT_EQ(during.count(), 1u);
    Value normalised = during.at(0);
    EXPECT_EQ(normalised,
        record({ { "FileIDKey", "" }, { "BaseSystemFileIDKey", "18446744073709551011" },
            { "BaseSystemFilePathKey", path("gone.txt") }, { "removeKey", "1" }, { "changeTypeKey", "Created" },
            { "oldPathKey", "" }, { "isFilekey", "1" }, { "fileSizeKey", "1" }, { "computerIDKey", "C-7" },
            { "filemodifiedDateKey", "2023-01-02 03:04:05" } }));
    EXPECT_EQ(keysOf(normalised),
        (Lines { "FileIDKey", "BaseSystemFileIDKey", "BaseSystemFilePathKey", "removeKey", "changeTypeKey", "oldPathKey",
            "isFilekey", "fileSizeKey", "computerIDKey", "filemodifiedDateKey" }));
}

TEST_F(ServiceState, RecordWithAnUnknownChangeTypeIsStillNormalisedAndClassifiedByFileNumberAndPath)
{
    writeFile("a.txt", "a");
    writeFile("b.txt", "b");
    firstPass();
    acceptReport();
    Value stored = *storedTable();
    for (std::size_t index = 0; index < stored.count(); ++index)
        stored.mutableAt(index).setObject(Value("Exploded"), "changeTypeKey");
    storeTable(stored);
    sh("mv b.txt c.txt");
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    EXPECT_EQ(summary(changes()), (Lines { "Renamed b.txt -> c.txt" }));
    // The unchanged entry keeps its change type; only the renamed one gets a new one.
    EXPECT_EQ(text(table().at(0), "changeTypeKey"), "Exploded");
}

TEST_F(ServiceState, MissingComputerIdEndsThePassAtTheFirstNormalisedRecord)
{
    writeFile("a.txt", "a");
    firstPass();
    acceptReport();
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(home()) } }));
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_TRUE(log.contains("*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: computerIDKey)"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 1u);
    EXPECT_EQ(status(), Value("1"));
}

TEST_F(ServiceState, MissingComputerIdWithAnEmptyTableEndsThePassAtTheFirstCreatedRecord)
{
    writeFile("a.txt", "a");
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(home()) } }));
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_TRUE(log.contains("*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: computerIDKey)"));
    EXPECT_EQ(changes().count(), 0u);
}

}

namespace {

class StoredTableReuse : public synctest::SyncFixture { };

TEST_F(StoredTableReuse, UnchangedStoredTableGivesTheSameRecordsPassAfterPass)
{
    writeFile("a.txt", "a");
    writeFile("b.txt", "b");
    firstPass();
    acceptReport();
    nextPass();
    EXPECT_EQ(changes().count(), 0u);
    // The stored table is the same as in the pass before; the changes are found against it all the same.
    sh("mv b.txt c.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Renamed b.txt -> c.txt" }));
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Renamed b.txt -> c.txt" }));
}

TEST_F(StoredTableReuse, NewComputerIdReachesTheRecordsOfAnUnchangedStoredTable)
{
    writeFile("a.txt", "a");
    // Kept, so that the folder is not emptied (which a guarded pass refuses to report).
    writeFile("b.txt", "b");
    firstPass();
    acceptReport();
    nextPass();
    writeSettings({ { "computerIdKey", Value("C-8") } });
    sh("rm a.txt");
    nextPass();
    ASSERT_EQ(summary(changes()), (Lines { "Deleted a.txt" }));
    EXPECT_EQ(text(changes().at(0), "computerIDKey"), "C-8");
}

TEST_F(StoredTableReuse, StoredTableWrittenAgainIsReadAgain)
{
    writeFile("a.txt", "a");
    firstPass();
    acceptReport();
    nextPass();
    Value stored = *storedTable();
    stored.mutableAt(0).setObject(Value("S-other"), "FileIDKey");
    storeTable(stored);
    sh("mv a.txt b.txt");
    nextPass();
    ASSERT_EQ(summary(changes()), (Lines { "Renamed a.txt -> b.txt" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S-other");
}

TEST_F(StoredTableReuse, FailedNormalisationLeavesTheStoredListAsTheTable)
{
    Value broken = record({ { "BaseSystemFileIDKey", "18446744073709551014" }, { "BaseSystemFilePathKey", path("x") } });
    storeTable(Value::array({ broken }));
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(table(), Value::array({ broken }));
}

}
