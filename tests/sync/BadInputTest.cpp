// What other processes may have written into the domains and the table: wrong types, arrays where dictionaries
// belong, numbers where strings belong, the null object. Every shape ends in the pass's failure path (guard, log
// line, next pass 2 seconds later) or is read the way the pass reads any value; nothing crashes.

#include "SyncFixture.h"

#include <algorithm>

using platform::Value;
using namespace synctest;
using namespace std::chrono_literals;

namespace {

class BadInput : public synctest::SyncFixture {
protected:
    Value goodEntry() { return tableRecord("18446744073709551013", path("x.txt"), "S-1"); }

    // True when a logged line (the failure that ended a pass, for one) holds `text`.
    bool logMentions(const std::string& text) const
    {
        auto lines = log.lines();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }

    // The pass ended through its guard, and the loop goes on: the next pass fails the same way 2 seconds later.
    void expectGuardedFailure()
    {
        EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
        EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
        EXPECT_EQ(status(), Value("1"));
        clock.advance(2s);
        EXPECT_EQ(service->countOf("logErrorMethod"), 2u);
    }
};

TEST_F(BadInput, TableStoredAsATextEndsThePassThroughTheGuard)
{
    storeTable(Value("not a list"));
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, TableStoredAsADictionaryEndsThePassThroughTheGuard)
{
    storeTable(goodEntry());
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, TableRecordThatIsAListEndsThePassThroughTheGuard)
{
    storeTable(Value::array({ Value::array({ Value("BaseSystemFileIDKey") }) }));
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, TableRecordThatIsTheNullObjectEndsThePassThroughTheGuard)
{
    storeTable(Value::array({ goodEntry(), Value::null() }));
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, ServerIdentifierThatIsANumberEndsThePassThroughTheGuard)
{
    Value entry = goodEntry();
    entry.setObject(Value::integer(4711), "FileIDKey");
    storeTable(Value::array({ entry }));
    firstPass();
    EXPECT_TRUE(log.contains("-[NSNumber isEqualToString:]: unrecognized selector sent to instance"));
    expectGuardedFailure();
}

TEST_F(BadInput, SharedListThatIsAnEmptyDictionaryFailsAtTheSharedDeletionAfterTheFileProcessesRan)
{
    writeFile("a.txt", "a");
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value::dictionary() } }));
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created a.txt" }));
    EXPECT_TRUE(logMentions("objectAtIndex:")) << testing::PrintToString(log.lines());
    expectGuardedFailure();
}

TEST_F(BadInput, SharedListThatIsANumberFailsAtItsCopyBeforeTheTableIsNormalised)
{
    Value entry = goodEntry();
    entry.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ entry }));
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value::integer(7) } }));
    firstPass();
    EXPECT_TRUE(logMentions("mutableCopyWithZone:")) << testing::PrintToString(log.lines());
    EXPECT_EQ(table(), Value::array({ entry }));
    expectGuardedFailure();
}

TEST_F(BadInput, SharedListThatIsATextFailsAfterTheTableIsNormalised)
{
    storeTable(Value::array({ goodEntry() }));
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value("list") } }));
    firstPass();
    EXPECT_FALSE(logMentions("mutableCopyWithZone:")) << testing::PrintToString(log.lines());
    ASSERT_EQ(table().count(), 1u);
    EXPECT_EQ(text(table().at(0), "removeKey"), "1");
    EXPECT_EQ(text(table().at(0), "computerIDKey"), "C-7");
    expectGuardedFailure();
}

TEST_F(BadInput, SharedListThatIsATextWithATableMissingAKeyFailsAtTheNormalisationFirst)
{
    Value entry = goodEntry();
    entry.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ entry }));
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value("list") } }));
    firstPass();
    EXPECT_TRUE(logMentions("oldPathKey")) << testing::PrintToString(log.lines());
    expectGuardedFailure();
}

TEST_F(BadInput, SharedRecordThatIsANumberEndsThePassThroughTheGuard)
{
    writeDomain("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value::array({ Value::integer(3) }) } }));
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, KnownFileNumberWithAPathThatIsANumberEndsThePassThroughTheGuard)
{
    writeFile("a.txt", "a");
    Value entry = goodEntry();
    entry.setObject(Value(fileNumber("a.txt")), "BaseSystemFileIDKey");
    entry.setObject(Value::integer(12), "BaseSystemFilePathKey");
    storeTable(Value::array({ entry }));
    firstPass();
    expectGuardedFailure();
}

TEST_F(BadInput, FileNumberThatIsANumberNeverMatchesAnItem)
{
    writeFile("a.txt", "a");
    Value entry = goodEntry();
    entry.setObject(Value::unsignedInteger(std::stoull(fileNumber("a.txt"))), "BaseSystemFileIDKey");
    storeTable(Value::array({ entry }));
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    // In either order: a guarded pass reports its deletions first.
    Lines lines = summary(changes());
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines { "Created a.txt", "Deleted x.txt" }));
    for (const Value& change : changes().elements()) {
        if (text(change, "changeTypeKey") == "Deleted") {
            EXPECT_TRUE(change.find("BaseSystemFileIDKey")->isNumber());
        }
    }
}

TEST_F(BadInput, StatusThatIsTheNumberOneIsNotBusy)
{
    writeFile("a.txt", "a");
    writeDomain("Ulmaridon.FileWatcherXpcService", Value::dictionary({ { "FileWatcherStatusKey", Value::integer(1) } }));
    service->syncFileInTablenCloud();
    EXPECT_TRUE(log.contains("syncFileInTablenCloud: 1"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_EQ(clock.pendingCount(), 1u);
    // Said once, however many passes meet it.
    clock.advance(2s);
    EXPECT_EQ(log.countStartingWith("The setting "), 1u);
    EXPECT_TRUE(log.contains("The setting FileWatcherStatusKey of Ulmaridon.FileWatcherXpcService cannot be used: "
                             "expected a string, \"1\" or \"0\", found a number"));
}

TEST_F(BadInput, SyncedFolderSettingLongerThanAnyPathWalksNothingAndIsLoggedOnce)
{
    writeFile("a.txt", "a");
    writeSettings({ { "korbanholdPathKey", Value("/" + std::string(5000, 'a')) } });
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    EXPECT_EQ(changes().count(), 0u);
    EXPECT_TRUE(log.contains("The setting korbanholdPathKey of Ulmaridon.Korbanhold cannot be used: expected the path of "
                             "a folder, a string of at most 4084 bytes, found a string of 5001 bytes"));
    EXPECT_EQ(log.countStartingWith("Cannot enter folder"), 0u) << "no walk is tried";
}

TEST_F(BadInput, IdentifiersOfAWrongKindAreLoggedWithWhatWasExpected)
{
    writeFile("a.txt", "a");
    writeSettings({ { "computerIdKey", Value::dictionary() }, { "userIdKey", Value::integer(4) } });
    firstPass();
    EXPECT_TRUE(log.contains("The setting computerIdKey of Ulmaridon.Korbanhold cannot be used: expected a string, the "
                             "computer's id, found a dictionary"));
    EXPECT_TRUE(log.contains("The setting userIdKey of Ulmaridon.Korbanhold cannot be used: expected a string, the "
                             "user's id, found a number"));
    EXPECT_EQ(log.countStartingWith("The setting "), 2u);
}

TEST_F(BadInput, SyncedFolderSettingThatIsANumberGivesAFolderThatDoesNotExist)
{
    writeFile("a.txt", "a");
    writeSettings({ { "korbanholdPathKey", Value::integer(5) } });
    firstPass();
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
    EXPECT_EQ(changes().count(), 0u);
}

TEST_F(BadInput, ComputerIdThatIsAListIsCarriedIntoTheRecordsAsItIs)
{
    writeFile("a.txt", "a");
    writeSettings({ { "computerIdKey", Value::array({ Value("C"), Value("7") }) } });
    firstPass();
    ASSERT_EQ(changes().count(), 1u);
    EXPECT_EQ(*changes().at(0).find("computerIDKey"), Value::array({ Value("C"), Value("7") }));
}

TEST_F(BadInput, DomainFileThatIsNotJsonReadsAsAbsent)
{
    writeFile("a.txt", "a");
    firstPass();
    testsupport::writeFile(root.path() / "Preferences/Ulmaridon.FileWatcherXpcService.json", "{\"FileWatcherStatusKey\": \"1\"");
    service->syncFileInTablenCloud();
    EXPECT_TRUE(log.contains("syncFileInTablenCloud: (null)"));
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 1u);
}

}
