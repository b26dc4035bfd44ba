// The safeguards of the default mode on real passes, each beside the described outcome that strict mode keeps.

#include "SyncFixture.h"

#include "support/Eventually.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

using platform::Value;
using namespace synctest;
using namespace std::chrono_literals;

namespace {

class Safeguards : public synctest::SyncFixture {
protected:
    Safeguards() { useGuardedMode(); }

    // The paths of the table's entries below the synced folder, sorted.
    Lines tablePaths() const
    {
        Lines paths;
        Value records = table();
        for (const Value& entry : records.elements())
            paths.push_back(text(entry, "BaseSystemFilePathKey").substr(synced().size() + 1));
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    // The items of the synced folder, sorted.
    Lines folderPaths() const
    {
        Lines paths;
        for (const auto& item : std::filesystem::recursive_directory_iterator(synced()))
            paths.push_back(item.path().string().substr(synced().size() + 1));
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    // A pass that ran to its end and a table that describes the folder; the pass after it, with the table
    // accepted, finds nothing more.
    void expectTableMatchesFolderAfterOnePass()
    {
        EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
        EXPECT_EQ(tablePaths(), folderPaths());
        acceptReport();
        nextPass();
        EXPECT_EQ(summary(changes()), Lines {});
    }

    bool hasType(const std::string& type, const std::string& relative) const
    {
        Lines lines = summary(changes());
        return std::find(lines.begin(), lines.end(), type + " " + relative) != lines.end();
    }
};

TEST_F(Safeguards, SizeChangeAloneIsAModification)
{
    writeFile("a.bin", std::string(10 * 1024, 'a'));
    settle();
    sh("touch -r a.bin ref && head -c 1024 /dev/zero >> a.bin && touch -r ref a.bin && rm ref");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Modified a.bin" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S" + fileNumber("a.bin"));
    EXPECT_EQ(text(changes().at(0), "fileSizeKey"), "11");
}

TEST_F(Safeguards, DateChangeAloneIsAModification)
{
    // The edit that keeps the size: one letter fixed in place.
    writeFile("a.txt", "helo wurld");
    sh("touch -d '2020-01-01 10:00:00' a.txt");
    settle();
    std::string before = fileNumber("a.txt");
    sh("printf 'helo world' > a.txt");
    ASSERT_EQ(fileNumber("a.txt"), before);
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Modified a.txt" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S" + before);
}

TEST_F(Safeguards, TwoMovesInOnePassAddressTheRightEntries)
{
    makeFolder("p");
    makeFolder("q");
    writeFile("p/one.txt", "1");
    writeFile("p/two.txt", "2");
    writeFile("p/zz.txt", "z");
    settle();
    sh("mv p/one.txt q/ && mv p/two.txt q/ && rm p/zz.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted p/one.txt", "Deleted p/two.txt", "Deleted p/zz.txt",
                                      "Created q/one.txt", "Created q/two.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, RenamedFolderIsReportedAfterTheDeletionsOfItsChildrensOldPaths)
{
    makeFolder("docs/inner");
    writeFile("docs/a.txt", "a");
    writeFile("docs/b.txt", "b");
    settle();
    sh("mv docs papers");
    nextPass();
    EXPECT_EQ(summary(changes()),
        (Lines { "Deleted docs/a.txt", "Deleted docs/b.txt", "Deleted docs/inner", "Renamed docs -> papers",
            "Created papers/a.txt", "Created papers/b.txt", "Created papers/inner" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, HardLinkIsAnItemOfItsOwn)
{
    writeFile("a.txt", "a");
    settle();
    sh("ln a.txt b.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created b.txt" }));
    EXPECT_EQ(text(changes().at(0), "BaseSystemFileIDKey"), fileNumber("a.txt"));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, HardLinkBesideAMoveNeverDeletesAFolderThatStillExists)
{
    writeFile("a/keep.txt", "k");
    writeFile("projects/x.txt", "x");
    writeFile("projects/y.txt", "y");
    writeFile("projects/z.txt", "z");
    settle();
    sh("ln projects/x.txt a/link.txt && mv projects/y.txt a/");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted projects/y.txt", "Created a/link.txt", "Created a/y.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, BackupStyleSaveInTheSameFolderCompletesThePass)
{
    writeFile("f.txt", "old");
    settle();
    sh("mv f.txt f.txt.bak && echo new > f.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Modified f.txt", "Created f.txt.bak" }));
    EXPECT_EQ(text(changes().at(0), "FileIDKey"), "S" + text(entryWithPath(changes(), path("f.txt.bak")), "BaseSystemFileIDKey"));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, BackupStyleSaveIntoAnotherFolderCompletesThePass)
{
    // The backup's folder comes first in the walk, so its move is seen before the new file.
    writeFile("b/f.txt", "old");
    makeFolder("a");
    settle();
    sh("mv b/f.txt a/f.txt && echo new > b/f.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created a/f.txt", "Modified b/f.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, FreedFileNumberReusedAtOnceIsNotTakenForAMove)
{
    makeFolder("a");
    writeFile("b/y.txt", "y");
    settle();
    // As after `rm a/x.txt; sed -i ... b/y.txt` on a file system that hands the freed number on at once: the table
    // knows a/x.txt under the number b/y.txt has now, and b/y.txt under another one.
    Value stored = storedTable().value();
    Value reused = tableRecord(fileNumber("b/y.txt"), path("a/x.txt"), "S-x");
    for (std::size_t index = 0; index < stored.count(); ++index) {
        if (text(stored.at(index), "BaseSystemFilePathKey") == path("b/y.txt"))
            stored.mutableAt(index).setObject(Value("18446744073709551004"), "BaseSystemFileIDKey");
    }
    stored.append(reused);
    storeTable(stored);
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a/x.txt", "Modified b/y.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, FolderNumberReusedAtOnceByANewFileIsNotTakenForAMove)
{
    writeFile("f.txt", "f");
    settle();
    // As after `rm -r d; echo f > f.txt` on a file system that hands the folder's freed number to the new file at once:
    // the table knows only the folder d, under the number f.txt has now.
    Value folder = tableRecord(fileNumber("f.txt"), path("d"), "S-d");
    folder.setObject(Value("0"), "isFilekey");
    storeTable(Value::array({ folder }));
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted d", "Created f.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, FileRenamedAndEditedInOnePassIsAlsoModified)
{
    writeFile("a.txt", "a");
    sh("touch -d '2020-01-01 10:00:00' a.txt");
    settle();
    sh("mv a.txt b.txt && printf 'more\\n' >> b.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Renamed a.txt -> b.txt", "Modified b.txt" }));
    expectTableMatchesFolderAfterOnePass();
}

TEST_F(Safeguards, MissingSyncedFolderIsNotReportedAsDeletedAndIsLoggedOnceEachWay)
{
    writeFile("a.txt", "a");
    settle();
    sh("cd .. && mv Korbanhold Away");
    nextPass();
    nextPass();
    nextPass();
    EXPECT_EQ(summary(changes()), Lines {});
    EXPECT_EQ(log.countStartingWith("Nothing is synced while the synced folder " + synced() + " does not exist"), 1u);
    EXPECT_EQ(status(), Value("1"));
    EXPECT_EQ(tablePaths(), (Lines { "a.txt" }));

    std::filesystem::rename(home() + "/Away", synced());
    nextPass();
    EXPECT_EQ(summary(changes()), Lines {});
    EXPECT_EQ(log.countStartingWith("Syncing again (it had stopped because the synced folder"), 1u);
    EXPECT_EQ(status(), Value("0"));
}

TEST_F(Safeguards, SyncedFolderThatIsAFileOrAMissingSettingIsNotReportedAsDeleted)
{
    writeFile("a.txt", "a");
    settle();
    sh("cd .. && mv Korbanhold Away && touch Korbanhold");
    nextPass();
    EXPECT_EQ(summary(changes()), Lines {});
    EXPECT_EQ(log.countStartingWith("Nothing is synced while the synced folder " + synced() + " is not a folder"), 1u);

    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "computerIdKey", Value("C-7") } }));
    nextPass();
    EXPECT_EQ(summary(changes()), Lines {});
    EXPECT_EQ(log.countStartingWith("Nothing is synced while the setting \"korbanholdPathKey\" is absent"), 1u);
}

TEST_F(Safeguards, EmptiedFolderDeletesNothingUntilAPersonConfirms)
{
    testsupport::TempDir runtime;
    testsupport::ScopedEnvironment runtimeVariable("KORBANHOLD_RUNTIME_DIR", runtime.string());
    // An engine finds the confirmation where the runtime folder was when it was made.
    useGuardedMode();
    writeFile("a.txt", "a");
    writeFile("d/b.txt", "b");
    settle();
    sh("rm -r ./*");
    nextPass();
    nextPass();
    EXPECT_EQ(summary(changes()), Lines {});
    EXPECT_EQ(log.countStartingWith("Nothing is synced while the synced folder " + synced() + " is empty but the table lists 3 items"), 1u);

    std::ofstream(runtime.path() / "confirm-delete-all").put('\n');
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a.txt", "Deleted d", "Deleted d/b.txt" }));
    EXPECT_FALSE(std::filesystem::exists(runtime.path() / "confirm-delete-all"));
}

TEST_F(Safeguards, OneLoopPerObjectWhateverTheNumberOfSyncFileCalls)
{
    for (int call = 0; call < 5; ++call)
        service->SyncFile();
    EXPECT_EQ(clock.pendingCount(), 1u);
    clock.advance(2s);
    EXPECT_EQ(clock.pendingCount(), 1u);
}

TEST_F(Safeguards, TableRecordThatFailsEveryPassIsLeftOutAfterThreeFailures)
{
    writeFile("x.txt", "x");
    Value broken = tableRecord("18446744073709551012", path("gone.txt"), "S-1");
    broken.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ broken }));
    firstPass();
    clock.advance(2s);
    clock.advance(2s);
    EXPECT_EQ(service->countOf("logErrorMethod"), 3u);
    EXPECT_EQ(log.countStartingWith("The pass failed 3 times in a row for the same reason"), 1u);
    clock.advance(2s);
    EXPECT_EQ(service->countOf("logErrorMethod"), 3u);
    EXPECT_EQ(log.countStartingWith("The stored record"), 1u);
    EXPECT_EQ(summary(changes()), (Lines { "Created x.txt" }));
}

class SyncFileDuringAPass : public synctest::SyncFixture {
protected:
    // Runs SyncFile on another thread while the first pass is in its shared-file process, and gives that call time
    // to write its status if it does not wait for the pass; answers how many passes ran to their end.
    std::size_t passesWithSyncFileInTheMiddle()
    {
        writeFile("A (Shared)/f.txt", "f");
        std::thread caller;
        service->duringSharedCreation = [&] {
            caller = std::thread([&] { service->SyncFile(); });
            // A call that does not wait for the pass writes "1" at once; one that waits writes nothing yet.
            testsupport::eventually([&] { return status() == Value("1") && log.countStartingWith("FileWatcher 1") == 2; },
                500ms);
        };
        firstPass();
        caller.join();
        return log.countStartingWith("Final List changed list");
    }
};

TEST_F(SyncFileDuringAPass, RunsItsOwnPassWithTheStatusItRaisedInEitherMode)
{
    EXPECT_EQ(passesWithSyncFileInTheMiddle(), 2u);
    EXPECT_EQ(status(), Value("0"));
}

TEST_F(SyncFileDuringAPass, RunsItsOwnPassInStrictModeToo)
{
    useStrictMode();
    EXPECT_EQ(passesWithSyncFileInTheMiddle(), 2u);
    // Strict: each SyncFile starts a loop of its own.
    EXPECT_EQ(clock.pendingCount(), 2u);
}

// The described outcomes of the same scenarios.
class StrictOutcomes : public synctest::SyncFixture {
protected:
    StrictOutcomes() { useStrictMode(); }
};

TEST_F(StrictOutcomes, MissingSyncedFolderReportsEveryItemDeleted)
{
    writeFile("a.txt", "a");
    settle();
    sh("cd .. && mv Korbanhold Away");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a.txt" }));
}

TEST_F(StrictOutcomes, EmptiedFolderReportsEveryItemDeleted)
{
    writeFile("a.txt", "a");
    settle();
    sh("rm a.txt");
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a.txt" }));
}

TEST_F(StrictOutcomes, BackupStyleSaveIntoAnotherFolderEndsEveryPassThroughTheGuard)
{
    writeFile("b/f.txt", "old");
    makeFolder("a");
    settle();
    sh("mv b/f.txt a/f.txt && echo new > b/f.txt");
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    nextPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 2u);
    EXPECT_EQ(status(), Value("1"));
}

TEST_F(StrictOutcomes, FreedFileNumberReusedAtOnceIsTakenForAMoveAndTheFileIsDeleted)
{
    makeFolder("a");
    writeFile("b/y.txt", "y");
    settle();
    Value stored = storedTable().value();
    for (std::size_t index = 0; index < stored.count(); ++index) {
        if (text(stored.at(index), "BaseSystemFilePathKey") == path("b/y.txt"))
            stored.mutableAt(index).setObject(Value("18446744073709551004"), "BaseSystemFileIDKey");
    }
    stored.append(tableRecord(fileNumber("b/y.txt"), path("a/x.txt"), "S-x"));
    storeTable(stored);
    nextPass();
    EXPECT_EQ(summary(changes()), (Lines { "Deleted a/x.txt", "Created b/y.txt", "Deleted b/y.txt" }));
}

TEST_F(StrictOutcomes, TableRecordThatFailsEveryPassKeepsFailing)
{
    Value broken = tableRecord("18446744073709551012", path("gone.txt"), "S-1");
    broken.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ broken }));
    firstPass();
    for (int pass = 0; pass < 4; ++pass)
        clock.advance(2s);
    EXPECT_EQ(service->countOf("logErrorMethod"), 5u);
}

}
