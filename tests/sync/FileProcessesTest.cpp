// Creation, modification and deletion, on real passes over a real folder.

#include "SyncFixture.h"

using platform::Value;
using namespace synctest;

namespace {

class FileProcesses : public synctest::SyncFixture {
protected:
    // A shared folder whose name sorts before every other item, so that its creation process runs `action` on the
    // pass's thread after the walk and before the processes of the other items.
    void betweenTheWalkAndTheProcesses(std::function<void()> action)
    {
        makeFolder("A (Shared)");
        service->duringSharedCreation = std::move(action);
    }
};

TEST_F(FileProcesses, NewFileSizesAreWholeKilobytesRoundedHalfUp)
{
    writeFile("a.bin", std::string(1536, 'x'));
    writeFile("b.bin", std::string(511, 'x'));
    writeFile("c.bin", "");
    writeFile("d.bin", std::string(512, 'x'));
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created a.bin", "Created b.bin", "Created c.bin", "Created d.bin" }));
    EXPECT_EQ(text(entryWithPath(changes(), path("a.bin")), "fileSizeKey"), "2");
    EXPECT_EQ(text(entryWithPath(changes(), path("b.bin")), "fileSizeKey"), "0");
    EXPECT_EQ(text(entryWithPath(changes(), path("c.bin")), "fileSizeKey"), "0");
    EXPECT_EQ(text(entryWithPath(changes(), path("d.bin")), "fileSizeKey"), "1");
}

TEST_F(FileProcesses, CreatedRecordHoldsTheItemWithAnEmptyServerIdentifierAndGoesToTableAndChangeList)
{
    writeFile("notes.txt", std::string(3000, 'n'));
    firstPass();
    Value expected = record({
        { "BaseSystemFileIDKey", fileNumber("notes.txt") },
        { "BaseSystemFilePathKey", path("notes.txt") },
        { "removeKey", "0" },
        { "changeTypeKey", "Created" },
        { "oldPathKey", "" },
        { "isFilekey", "1" },
        { "fileSizeKey", "3" },
        { "FileIDKey", "" },
        { "computerIDKey", "C-7" },
        { "filemodifiedDateKey", modifiedDate("notes.txt") },
    });
    ASSERT_EQ(changes().count(), 1u);
    EXPECT_EQ(changes().at(0), expected) << changes().description();
    EXPECT_EQ(keysOf(changes().at(0)), keysOf(expected));
    ASSERT_EQ(table().count(), 1u);
    EXPECT_EQ(table().at(0), expected);
}

TEST_F(FileProcesses, CreatedRecordHoldsTheItemAsItIsWhenTheRecordIsMadeNotAsTheWalkSawIt)
{
    writeFile("b.txt", "b");
    std::string number = fileNumber("b.txt");
    betweenTheWalkAndTheProcesses([&] { sh("head -c 3000 /dev/zero >> b.txt && touch -d '2021-06-07 08:09:10' b.txt"); });
    firstPass();
    ASSERT_EQ(summary(changes()), (Lines { "Created b.txt" }));
    EXPECT_EQ(text(changes().at(0), "BaseSystemFileIDKey"), number);
    EXPECT_EQ(text(changes().at(0), "fileSizeKey"), "3");
    EXPECT_EQ(text(changes().at(0), "filemodifiedDateKey"), "2021-06-07 08:09:10");
}

TEST_F(FileProcesses, ItemGoneBeforeItsCreationEndsThePassThroughTheGuardWithTheStatusLeftBusy)
{
    writeFile("b.txt", "b");
    betweenTheWalkAndTheProcesses([&] { sh("rm b.txt"); });
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_EQ(status(), Value("1"));
    EXPECT_EQ(changes().count(), 0u) << changes().description();
}

TEST_F(FileProcesses, ItemGoneBeforeItsModificationEndsThePassThroughTheGuard)
{
    writeFile("b.txt", "b");
    storeTable(Value::array({ tableRecord("18446744073709551013", path("b.txt"), "S-1") }));
    betweenTheWalkAndTheProcesses([&] { sh("rm b.txt"); });
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(status(), Value("1"));
    EXPECT_EQ(changes().count(), 0u) << changes().description();
}

TEST_F(FileProcesses, NewFolderIsNotAFileButASymbolicLinkIs)
{
    makeFolder("folder");
    writeFile("target.txt", "t");
    sh("ln -s target.txt link");
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created folder", "Created link", "Created target.txt" }));
    EXPECT_EQ(text(entryWithPath(changes(), path("folder")), "isFilekey"), "0");
    EXPECT_EQ(text(entryWithPath(changes(), path("link")), "isFilekey"), "1");
    EXPECT_EQ(text(entryWithPath(changes(), path("target.txt")), "isFilekey"), "1");
}

TEST_F(FileProcesses, FileReplacedByANewFileAtItsPathYieldsOneModifiedRecordWithTheOldServerIdentifier)
{
    writeFile("a.txt", "first version\n");
    firstPass();
    acceptReport();
    std::string oldNumber = fileNumber("a.txt");
    sh("sed -i 's/first/second/' a.txt");
    ASSERT_NE(fileNumber("a.txt"), oldNumber);

    nextPass();
    Value expected = record({
        { "BaseSystemFileIDKey", fileNumber("a.txt") },
        { "BaseSystemFilePathKey", path("a.txt") },
        { "removeKey", "0" },
        { "changeTypeKey", "Modified" },
        { "oldPathKey", "" },
        { "isFilekey", "1" },
        { "fileSizeKey", "0" },
        { "FileIDKey", "S" + oldNumber },
        { "computerIDKey", "C-7" },
        { "filemodifiedDateKey", modifiedDate("a.txt") },
    });
    ASSERT_EQ(summary(changes()), (Lines { "Modified a.txt" }));
    EXPECT_EQ(changes().at(0), expected) << changes().description();
    EXPECT_EQ(keysOf(changes().at(0)), keysOf(expected));
    ASSERT_EQ(table().count(), 1u);
    EXPECT_EQ(table().at(0), expected);
}

TEST_F(FileProcesses, AfternoonAndMorningOfOneDayCarryTheSameDateText)
{
    writeFile("afternoon.txt", "pm");
    writeFile("morning.txt", "am");
    sh("touch -d '2024-03-05 14:05:09' afternoon.txt && touch -d '2024-03-05 02:05:09' morning.txt");
    firstPass();
    EXPECT_EQ(text(entryWithPath(changes(), path("afternoon.txt")), "filemodifiedDateKey"), "2024-03-05 02:05:09");
    EXPECT_EQ(text(entryWithPath(changes(), path("morning.txt")), "filemodifiedDateKey"), "2024-03-05 02:05:09");
}

TEST_F(FileProcesses, ModificationReplacesOnlyTheFirstOfTwoEntriesWithThePath)
{
    writeFile("a.txt", "a");
    storeTable(Value::array({
        tableRecord("18446744073709551001", path("a.txt"), "S-first"),
        tableRecord("18446744073709551002", path("a.txt"), "S-second"),
    }));
    firstPass();
    // The second entry is not replaced, so it is still marked and the deletion reports it.
    EXPECT_EQ(summary(changes()), (Lines { "Modified a.txt", "Deleted a.txt" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S-first");
    EXPECT_EQ(text(changes().at(1), "FileIDKey"), "S-second");
    EXPECT_EQ(text(changes().at(1), "BaseSystemFileIDKey"), "18446744073709551002");
    ASSERT_EQ(table().count(), 1u);
    EXPECT_EQ(text(table().at(0), "changeTypeKey"), "Modified");
}

TEST_F(FileProcesses, DeletionReportsOneDeletedRecordPerEntryStillMarkedInTableOrderAndDropsThemAll)
{
    writeFile("kept.txt", "k");
    firstPass();
    acceptReport();
    Value stored = *storedTable();
    Value vanished = tableRecord("18446744073709551003", path("gone/y.txt"), "S-y");
    stored.append(tableRecord("18446744073709551002", path("gone/x.txt"), "S-x"));
    stored.append(vanished);
    stored.append(vanished);
    stored.append(tableRecord("18446744073709551004", path("gone/z.txt"), ""));
    storeTable(stored);

    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted gone/x.txt", "Deleted gone/y.txt", "Deleted gone/y.txt", "Deleted gone/z.txt" }));
    Value expected = record({
        { "BaseSystemFileIDKey", "18446744073709551003" },
        { "BaseSystemFilePathKey", path("gone/y.txt") },
        { "changeTypeKey", "Deleted" },
        { "oldPathKey", "" },
        { "isFilekey", "1" },
        { "fileSizeKey", "4" },
        { "computerIDKey", "C-7" },
        { "FileIDKey", "S-y" },
        { "filemodifiedDateKey", "2023-01-02 03:04:05" },
    });
    EXPECT_EQ(changes().at(1), expected) << changes().description();
    EXPECT_EQ(keysOf(changes().at(1)), keysOf(expected));
    EXPECT_EQ(summary(table()), (Lines { "Created kept.txt" }));
    EXPECT_EQ(text(table().at(0), "removeKey"), "0");
}

TEST_F(FileProcesses, TableEntryWhoseServerIdentifierIsTheNullObjectIsDeletedWithAnEmptyOne)
{
    firstPass();
    Value entry = tableRecord("18446744073709551005", path("x.txt"), "");
    entry.setObject(Value::null(), "FileIDKey");
    entry.setObject(Value("1"), "removeKey");
    service->setUserDefaultsArray(Value::array({ entry }));
    service->setChangedListArray(Value::array());

    service->performFileDeletionProcess();
    ASSERT_EQ(changes().count(), 1u);
    EXPECT_EQ(text(changes().at(0), "changeTypeKey"), "Deleted");
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "");
    EXPECT_EQ(table().count(), 0u);
}

TEST_F(FileProcesses, EntriesNotMarkedAreLeftAloneByTheDeletion)
{
    firstPass();
    Value marked = tableRecord("18446744073709551006", path("m.txt"), "S-m");
    marked.setObject(Value("1"), "removeKey");
    Value notMarked = tableRecord("18446744073709551007", path("n.txt"), "S-n");
    notMarked.setObject(Value("yes"), "removeKey");
    service->setUserDefaultsArray(Value::array({ notMarked, marked, tableRecord("18446744073709551008", path("o.txt"), "") }));
    service->setChangedListArray(Value::array());

    service->performFileDeletionProcess();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted m.txt" }));
    EXPECT_EQ(summary(table()), (Lines { "Created n.txt", "Created o.txt" }));
}

}
