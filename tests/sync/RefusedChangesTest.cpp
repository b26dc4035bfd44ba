// The refused changes of a report left undone on the engine's table: which entry each change finds when paths and
// file numbers repeat, where a put-back record goes, that one undone change is seen by the next, and that only the
// undone entries differ from the stored table afterwards.

#include "SyncFixture.h"

#include "platform/PreferenceJson.h"
#include "sync/RefusedChanges.h"
#include "sync/WatchedTable.h"

#include <gtest/gtest.h>

using engine::WatchedTable;
using platform::Value;
using synctest::tableRecord;

namespace {

Value change(const std::string& type, const std::string& fileNumber, const std::string& path)
{
    Value record = tableRecord(fileNumber, path, "");
    record.setObject(Value(type), "changeTypeKey");
    return record;
}

Value withField(Value record, const std::string& key, Value value)
{
    record.setObject(std::move(value), key);
    return record;
}

// A table whose entries are `records` as read from the store for computer "C-7", every one found by a pass and
// the table stored again: each entry stands for its stored row unchanged.
WatchedTable storedTableOf(const Value& records)
{
    engine::StoredRecords stored;
    for (const Value& record : records.elements())
        stored.appendText(platform::writePreferenceJson(record, { .allowFragments = true, .escapeSlashes = false }));
    const Value computerId("C-7");
    WatchedTable table(engine::StoredTable::normalise(std::move(stored), &computerId, 1));
    for (std::size_t position = 0; position < table.count(); ++position)
        table.markSeen(position, &computerId);
    table.rowsStored(2);
    return table;
}

void expectRecords(const WatchedTable& table, const Value& expected)
{
    const Value records = table.records();
    ASSERT_EQ(records.count(), expected.count());
    for (std::size_t position = 0; position < records.count(); ++position) {
        SCOPED_TRACE(position);
        EXPECT_EQ(records.at(position).description(), expected.at(position).description());
        EXPECT_EQ(records.at(position).keys(), expected.at(position).keys());
    }
}

}

TEST(RefusedChanges, EachChangeFindsTheFirstEntryOfItsPathAndACreationAlsoItsFileNumber)
{
    WatchedTable live = storedTableOf(Value::array({ tableRecord("1", "/k/a", "F-1"), tableRecord("2", "/k/a", "F-2"),
        tableRecord("3", "/k/b", "F-3"), tableRecord("4", "/k/b", "F-4") }));
    const Value table = live.records();
    engine::leaveRefusedChangesUndone(live,
        Value::array({ change("Modified", "9", "/k/a"), change("Created", "4", "/k/b") }), {});

    expectRecords(live,
        Value::array({ withField(withField(table.at(0), "fileSizeKey", Value("")), "filemodifiedDateKey", Value("")),
            table.at(1), table.at(2) }));
    // Only the undone entries differ from the stored table: one replaced, one taken out.
    const auto rows = live.rows();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_TRUE(rows[0].replaced);
    EXPECT_FALSE(rows[1].replaced);
    EXPECT_EQ(rows[2].readIndex, 2u);
    EXPECT_FALSE(rows[2].replaced);
}

TEST(RefusedChanges, AnUndoneChangeIsSeenByTheChangesAfterIt)
{
    WatchedTable live = storedTableOf(Value::array({ tableRecord("1", "/k/new", "F-1"), tableRecord("2", "/k/c", "F-2") }));
    const Value table = live.records();
    Value renamed = withField(change("Renamed", "1", "/k/new"), "oldPathKey", Value("/k/old"));
    // The rename moves the entry back to /k/old, where the modification then finds it; the deletion's record goes
    // back at the end, where the creation of the same path and number then finds it before nothing else.
    engine::leaveRefusedChangesUndone(live,
        Value::array({ renamed, change("Modified", "1", "/k/old"), change("Deleted", "7", "/k/gone"),
            change("Created", "7", "/k/gone"), change("Modified", "2", "/k/nowhere") }),
        {});

    Value moved = withField(table.at(0), "BaseSystemFilePathKey", Value("/k/old"));
    moved = withField(withField(moved, "fileSizeKey", Value("")), "filemodifiedDateKey", Value(""));
    expectRecords(live, Value::array({ moved, table.at(1) }));
    // A path the undoing did not index is still found.
    EXPECT_EQ(live.firstPositionWithPath("/k/c"), 1u);
    EXPECT_EQ(live.firstPositionWithPath("/k/new"), std::nullopt);
}

TEST(RefusedChanges, ADeletedRecordComesBackLastAndARenameRefusedAgainLosesItsFileNumber)
{
    WatchedTable live = storedTableOf(Value::array({ tableRecord("1", "/k/new", "F-1"), tableRecord("2", "/k/c", "F-2") }));
    const Value table = live.records();
    Value renamed = withField(change("Renamed", "1", "/k/new"), "oldPathKey", Value("/k/old"));
    const Value deleted = change("Deleted", "5", "/k/c");
    engine::leaveRefusedChangesUndone(live, Value::array({ deleted, renamed }), { { "/k/old", "/k/new" } });

    Value moved = withField(table.at(0), "BaseSystemFilePathKey", Value("/k/old"));
    expectRecords(live,
        Value::array({ withField(moved, "BaseSystemFileIDKey", Value("")), table.at(1),
            withField(deleted, "removeKey", Value("1")) }));
    // The entry of /k/c that was there first is still the first of its path.
    EXPECT_EQ(live.firstPositionWithPath("/k/c"), 1u);
}

TEST(RefusedChanges, APathThatIsNotATextFindsTheEntryThatHoldsTheSameValue)
{
    const Value odd = withField(tableRecord("1", "/k/a", "F-1"), "BaseSystemFilePathKey", Value(platform::Number::fromInt(5)));
    WatchedTable live = WatchedTable::ofRecords(Value::array({ tableRecord("2", "/k/b", "F-2"), odd }));
    engine::leaveRefusedChangesUndone(live,
        Value::array({ withField(change("Modified", "1", ""), "BaseSystemFilePathKey", Value(platform::Number::fromInt(5))) }), {});

    expectRecords(live,
        Value::array({ tableRecord("2", "/k/b", "F-2"),
            withField(withField(odd, "fileSizeKey", Value("")), "filemodifiedDateKey", Value("")) }));
}
