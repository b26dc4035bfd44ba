// The rename process on real passes: an item whose file number the table knows.

#include "SyncFixture.h"

using platform::Value;
using namespace synctest;

namespace {

class RenameProcess : public synctest::SyncFixture {
protected:
    // A shared folder whose name sorts before every other item, so that its creation process runs `action` on the
    // pass's thread after the walk of the next pass and before the processes of the other items.
    void betweenTheWalkAndTheProcesses(std::function<void()> action)
    {
        makeFolder("A (Shared)");
        service->duringSharedCreation = std::move(action);
    }
};

TEST_F(RenameProcess, SizeChangeAloneYieldsNoRecord)
{
    useStrictMode();
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    settle();
    // Grow the file in place (same file number) to 11 KB and give it back its old modification time.
    sh("touch -r a.bin ref && head -c 1024 /dev/zero >> a.bin && touch -r ref a.bin && rm ref");
    nextPass();
    EXPECT_EQ(changes().count(), 0u) << changes().description();
    Value entry = entryWithPath(table(), path("a.bin"));
    EXPECT_EQ(text(entry, "fileSizeKey"), "10");
    EXPECT_EQ(text(entry, "removeKey"), "0");
}

TEST_F(RenameProcess, DateChangeAloneYieldsNoRecord)
{
    useStrictMode();
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    settle();
    sh("touch -d '2020-01-01 10:00:00' a.bin");
    nextPass();
    EXPECT_EQ(changes().count(), 0u) << changes().description();
}

TEST_F(RenameProcess, SizeAndDateChangeAtTheSamePathYieldOneModifiedRecordWithTheOldServerIdentifier)
{
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    sh("touch -d '2020-01-01 10:00:00' a.bin");
    settle();
    sh("head -c 1024 /dev/zero >> a.bin && touch -d '2021-06-07 08:09:10' a.bin");
    nextPass();
    ASSERT_EQ(summary(changes()), (Lines { "Modified a.bin" }));
    Value modified = changes().at(0);
    EXPECT_EQ(text(modified, "BaseSystemFileIDKey"), fileNumber("a.bin"));
    EXPECT_EQ(text(modified, "FileIDKey"), "S" + fileNumber("a.bin"));
    EXPECT_EQ(text(modified, "fileSizeKey"), "11");
    EXPECT_EQ(text(modified, "filemodifiedDateKey"), "2021-06-07 08:09:10");
    EXPECT_EQ(summary(table()), (Lines { "Modified a.bin" }));
}

TEST_F(RenameProcess, ModifiedRecordHoldsTheItemAsItIsWhenTheRecordIsMadeNotAsTheWalkSawIt)
{
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    sh("touch -d '2020-01-01 10:00:00' a.bin");
    settle();
    sh("head -c 1024 /dev/zero >> a.bin && touch -d '2021-06-07 08:09:10' a.bin");
    betweenTheWalkAndTheProcesses([&] { sh("head -c 2048 /dev/zero >> a.bin && touch -d '2022-03-04 05:06:07' a.bin"); });
    nextPass();
    ASSERT_EQ(summary(changes()), (Lines { "Modified a.bin" }));
    EXPECT_EQ(text(changes().at(0), "fileSizeKey"), "13");
    EXPECT_EQ(text(changes().at(0), "filemodifiedDateKey"), "2022-03-04 05:06:07");
}

TEST_F(RenameProcess, ItemTheWalkSawUnchangedIsNotLookedAtAgain)
{
    // The walk's attributes are the first test: an item they show unchanged costs no second look, so a change made
    // after the walk waits for the next pass.
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    sh("touch -d '2020-01-01 10:00:00' a.bin");
    settle();
    betweenTheWalkAndTheProcesses([&] { sh("head -c 2048 /dev/zero >> a.bin && touch -d '2022-03-04 05:06:07' a.bin"); });
    nextPass();
    EXPECT_EQ(changes().count(), 0u) << changes().description();
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Modified a.bin" }));
}

TEST_F(RenameProcess, ItemChangedInPlaceButGoneBeforeItsProcessYieldsNoRecord)
{
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    sh("touch -d '2020-01-01 10:00:00' a.bin");
    settle();
    sh("head -c 1024 /dev/zero >> a.bin && touch -d '2021-06-07 08:09:10' a.bin");
    betweenTheWalkAndTheProcesses([&] { sh("rm a.bin"); });
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    EXPECT_EQ(changes().count(), 0u) << changes().description();
}

TEST_F(RenameProcess, MovedItemGoneBeforeItsCreationEndsThePassThroughTheGuardWithTheStatusLeftBusy)
{
    makeFolder("x");
    makeFolder("y");
    writeFile("x/a.txt", "a");
    settle();
    sh("mv x/a.txt y/a.txt");
    betweenTheWalkAndTheProcesses([&] { sh("rm y/a.txt"); });
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(status(), Value("1"));
    EXPECT_EQ(summary(changes()), (Lines { "Deleted x/a.txt" }));
}

TEST_F(RenameProcess, RenameInTheSameFolderYieldsOneRenamedRecordWithTheOldAttributes)
{
    useStrictMode();
    makeFolder("x");
    writeFile("x/a.txt", std::string(2048, 'a'));
    settle();
    std::string oldDate = modifiedDate("x/a.txt");
    sh("mv x/a.txt x/b.txt && echo more >> x/b.txt && touch -d '2022-02-02 02:02:02' x/b.txt");
    nextPass();
    Value expected = record({
        { "BaseSystemFileIDKey", fileNumber("x/b.txt") },
        { "BaseSystemFilePathKey", path("x/b.txt") },
        { "oldPathKey", path("x/a.txt") },
        { "changeTypeKey", "Renamed" },
        { "removeKey", "0" },
        { "isFilekey", "1" },
        { "fileSizeKey", "2" },
        { "filemodifiedDateKey", oldDate },
        { "FileIDKey", "S" + fileNumber("x/b.txt") },
        { "computerIDKey", "C-7" },
    });
    ASSERT_EQ(summary(changes()), (Lines { "Renamed x/a.txt -> x/b.txt" }));
    EXPECT_EQ(changes().at(0), expected) << changes().description();
    EXPECT_EQ(keysOf(changes().at(0)), keysOf(expected));
    // The renamed entry takes the old entry's place in the table.
    EXPECT_EQ(summary(table()), (Lines { "Created x", "Renamed x/a.txt -> x/b.txt" }));
}

TEST_F(RenameProcess, MoveToAnotherFolderYieldsDeletedWithRemoveKeyZeroThenCreated)
{
    makeFolder("x");
    makeFolder("y");
    writeFile("x/a.txt", "a");
    settle();
    std::string number = fileNumber("x/a.txt");
    sh("mv x/a.txt y/a.txt");
    nextPass();
    Value removal = record({
        { "BaseSystemFileIDKey", number },
        { "BaseSystemFilePathKey", path("x/a.txt") },
        { "oldPathKey", "" },
        { "isFilekey", "1" },
        { "fileSizeKey", "0" },
        { "filemodifiedDateKey", modifiedDate("y/a.txt") },
        { "FileIDKey", "S" + number },
        { "changeTypeKey", "Deleted" },
        { "removeKey", "0" },
        { "computerIDKey", "C-7" },
    });
    ASSERT_EQ(summary(changes()), (Lines { "Deleted x/a.txt", "Created y/a.txt" }));
    EXPECT_EQ(changes().at(0), removal) << changes().description();
    EXPECT_EQ(keysOf(changes().at(0)), keysOf(removal));
    EXPECT_EQ(text(changes().at(1), "FileIDKey"), "");
    EXPECT_EQ(text(changes().at(1), "BaseSystemFileIDKey"), number);
    EXPECT_EQ(summary(table()), (Lines { "Created x", "Created y", "Created y/a.txt" }));
}

TEST_F(RenameProcess, MoveUnderANewNameYieldsDeletedWithRemoveKeyOneThenCreated)
{
    makeFolder("x");
    makeFolder("y");
    writeFile("x/a.txt", "a");
    settle();
    sh("mv x/a.txt y/b.txt");
    nextPass();
    ASSERT_EQ(summary(changes()), (Lines { "Deleted x/a.txt", "Created y/b.txt" }));
    EXPECT_EQ(text(changes().at(0), "removeKey"), "1");
    EXPECT_EQ(text(changes().at(1), "removeKey"), "0");
}

TEST_F(RenameProcess, RenameThatOnlyChangesTheCaseIsARename)
{
    writeFile("A.txt", "a");
    settle();
    sh("mv A.txt a.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Renamed A.txt -> a.txt" }));
}

TEST_F(RenameProcess, UnchangedItemLeavesTheChangeListAloneButItsEntryIsMarkedSeen)
{
    writeFile("a.txt", "a");
    settle();
    nextPass();
    EXPECT_EQ(changes().count(), 0u);
    ASSERT_EQ(table().count(), 1u);
    Value entry = table().at(0);
    EXPECT_EQ(text(entry, "removeKey"), "0");
    EXPECT_EQ(text(entry, "FileIDKey"), "S" + fileNumber("a.txt"));
    EXPECT_EQ(keysOf(entry),
        (Lines { "BaseSystemFileIDKey", "BaseSystemFilePathKey", "changeTypeKey", "oldPathKey", "isFilekey",
            "fileSizeKey", "filemodifiedDateKey", "FileIDKey", "computerIDKey", "removeKey" }));
}

// Moves take their entry out of the table while the file numbers keep the positions the table had when the pass
// read it: every later lookup addresses the entry that moved up one place.
TEST_F(RenameProcess, TwoMovesInOnePassShiftLaterTablePositions)
{
    useStrictMode();
    makeFolder("p");
    makeFolder("q");
    writeFile("p/one.txt", "1");
    writeFile("p/two.txt", "2");
    writeFile("p/zz.txt", "z");
    settle();
    ASSERT_EQ(summary(table()), (Lines { "Created p", "Created p/one.txt", "Created p/two.txt", "Created p/zz.txt", "Created q" }));
    sh("mv p/one.txt q/ && mv p/two.txt q/ && rm p/zz.txt");

    nextPass();
    // q/one.txt: its entry (position 1) is taken out and it is created anew. q/two.txt: position 2 now holds
    // p/zz.txt's entry, which is marked seen; its file number differs, so nothing else happens. The deletion then
    // finds p/two.txt still marked, but not p/zz.txt.
    EXPECT_EQ(summary(changes()), (Lines { "Deleted p/one.txt", "Created q/one.txt", "Deleted p/two.txt" }));
    EXPECT_EQ(text(changes().at(0), "removeKey"), "0");
    EXPECT_EQ(text(changes().at(2), "removeKey"), "<absent>");
    EXPECT_EQ(summary(table()), (Lines { "Created p", "Created p/zz.txt", "Created q", "Created q/one.txt" }));
    EXPECT_EQ(text(entryWithPath(table(), path("p/zz.txt")), "removeKey"), "0");

    // The next pass catches up with what the shift hid.
    acceptReport();
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created q/two.txt", "Deleted p/zz.txt" }));
}

TEST_F(RenameProcess, RenamedFolderMovesItsChildrenAndTheShiftDefersTheSecondChildToTheNextPass)
{
    useStrictMode();
    makeFolder("docs");
    writeFile("docs/a.txt", "a");
    writeFile("docs/b.txt", "b");
    settle();
    sh("mv docs papers");
    nextPass();
    EXPECT_EQ(summary(changes()),
        (Lines { "Renamed docs -> papers", "Deleted docs/a.txt", "Created papers/a.txt", "Deleted docs/b.txt" }));
    acceptReport();
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created papers/b.txt" }));
}

}
